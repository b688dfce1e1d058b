# Writes each program of a document (a ```cpp or ```c block, or one between .EX and .EE, with a main) to its own file:
# PREFIX_1.cpp, PREFIX_2.cpp, ... Compilers report the document's line numbers.
function begin(kind) {
  inside = 1
  extension = kind
  text = sprintf("#line %d \"%s\"\n", FNR + 1, FILENAME)
}
function end() {
  if (inside && text ~ /int main\(/) {
    file = prefix "_" ++count "." extension
    printf "%s", text > file
    close(file)
  }
  inside = 0
}
/^```cpp$/ || /^\.EX$/ { begin("cpp"); next }
/^```c$/ { begin("c"); next }
/^```/ || /^\.EE$/ { end() }
inside {
  gsub(/\\\(aq/, "'")
  gsub(/\\-/, "-")
  gsub(/\\e/, "\\")
  text = text $0 "\n"
}
