// Runs something where the kernel sends no uevents.
#ifndef YUSB_TESTS_OWN_NETWORK_H_
#define YUSB_TESTS_OWN_NETWORK_H_

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

constexpr int no_user_namespaces = 77;

// The exit status of `work` in a process that has a network namespace of its own: `no_user_namespaces` where
// the host allows none. A child process, because only a single-threaded process can enter a user namespace.
template <typename Work>
int status_in_own_network(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 ? work() : no_user_namespaces);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

#endif  // YUSB_TESTS_OWN_NETWORK_H_
