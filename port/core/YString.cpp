#include <YorvanCore/YString.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

// The reference count. The bytes and a terminating zero follow it in the same allocation.
struct YString::Block {
  std::atomic<unsigned> owners{1};
  std::size_t size;

  explicit Block(std::size_t bytes) noexcept : size(bytes) {}
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

  static Block* make(std::size_t size) {
    auto* block = new (::operator new(sizeof(Block) + size + 1)) Block(size);
    block->bytes()[size] = '\0';
    return block;
  }
  static Block* make(const char* bytes, std::size_t size) {
    if (size == 0) return nullptr;
    Block* block = make(size);
    std::memcpy(block->bytes(), bytes, size);
    return block;
  }
  static Block* share(Block* block) noexcept {
    if (block != nullptr) block->owners.fetch_add(1, std::memory_order_relaxed);
    return block;
  }
  static void drop(Block* block) noexcept {
    if (block == nullptr || block->owners.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    block->~Block();
    ::operator delete(block);
  }
};

namespace {

std::string_view view(const YString& text) { return {text.data(), text.size()}; }

}  // namespace

YString YString::adopt(Block* block) noexcept {
  YString text;
  text._block = block;
  return text;
}

YString::YString(const char* text)
    : _block(text == nullptr ? nullptr : Block::make(text, std::strlen(text))) {}

YString::YString(const char* bytes, std::size_t size) : _block(Block::make(bytes, size)) {}

YString::YString(const YString& other) noexcept : _block(Block::share(other._block)) {}

YString& YString::operator=(const YString& other) noexcept {
  Block* old = _block;
  _block = Block::share(other._block);
  Block::drop(old);
  return *this;
}

YString::~YString() { Block::drop(_block); }

const char* YString::data() const noexcept { return _block == nullptr ? "" : _block->bytes(); }

std::size_t YString::size() const noexcept { return _block == nullptr ? 0 : _block->size; }

bool YString::operator==(const YString& other) const noexcept {
  return _block == other._block || view(*this) == view(other);
}

bool YString::operator!=(const YString& other) const noexcept { return !(*this == other); }

bool YString::operator<(const YString& other) const noexcept { return view(*this) < view(other); }

bool YString::contains(const YString& part) const noexcept {
  return view(*this).find(view(part)) != std::string_view::npos;
}

YString YString::toLower() const {
  YString copy(data(), size());
  for (std::size_t i = 0; i < size(); ++i) {
    char& c = copy._block->bytes()[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return copy;
}

YString YString::toUpper() const {
  YString copy(data(), size());
  for (std::size_t i = 0; i < size(); ++i) {
    char& c = copy._block->bytes()[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return copy;
}

YString YString::format(const char* format, ...) {
  char buffer[128];  // most strings fit, so that they are formatted only once
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);

  struct End {
    va_list& list;
    ~End() { va_end(list); }
  } end{again};
  if (length <= 0) return {};
  const auto size = static_cast<std::size_t>(length);
  if (size < sizeof buffer) return {buffer, size};
  YString text = adopt(Block::make(size));
  std::vsnprintf(text._block->bytes(), size + 1, format, again);
  return text;
}
