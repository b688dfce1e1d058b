# Writes each ```cpp block of a document to a file of its own: PREFIX_1.cpp, PREFIX_2.cpp, ... A compiler names the
# document's line.
/^```cpp$/ {
  file = prefix "_" ++count ".cpp"
  printf "#line %d \"%s\"\n", FNR + 1, FILENAME > file
  next
}
/^```/ {
  if (file != "") close(file)
  file = ""
}
file != "" { print > file }
