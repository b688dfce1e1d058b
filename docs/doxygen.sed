# Makes of the headers' comments what Doxygen reads: /// before a declaration and ///< behind it. A comment that is not
# about the declaration beside it stays as it is: a heading, what a brace closes, a word to a checker.
1s|^//|/// \\file\n///|
/^ *\/\/ ----/b
/^(}|#)/b
s|^( *)//   |\1///     |
s|^( *)//( .*)?$|\1///\2|
/^ *\/\/\//{
  s|\\x|\\\\x|g
  b
}
s| +// NOLINT.*$||
s|^(.*[^ ]) +// (.*)$|\1  ///< \2|
