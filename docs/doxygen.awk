# Makes of a header's comments what Doxygen reads. The headers keep to plain prose; what a sentence is about shows in how
# it begins: "`name` ..." is about a parameter, "True ..." and "False ..." about what is returned, "Throws ..." and
# "Takes ..." about exceptions and locks, "Since VERSION." about the version that brought it. A heading ("---- Life ----")
# begins a group, and so does the namespace of a header that is a group as a whole.
BEGIN {
  title["life"] = "Life"
  title["events"] = "Contexts and events"
  title["devices"] = "Devices"
  title["layers"] = "The layers beneath"
  title["watcher"] = "The exact watcher"
  title["filter"] = "Filters"
  title["details"] = "What a device is"
  title["openable"] = "When a device can be opened"
  title["openable_queue"] = "A queue that reports openable devices"
  title["location"] = "Port paths and location IDs"
  title["bus"] = "The bus"
  title["simulator"] = "The simulated bus"
  group["Life"] = "life"
  group["Contexts"] = "events"
  group["Devices"] = "devices"
  group["What a record is (no lock; from anywhere)"] = "devices"
  group["The layers beneath"] = "layers"
  member["YUsbInfoDevice"] = member["device_visitor"] = "devices"
  member["_yusb_device_event"] = member["yusb_device_event_interface"] = "events"
}

FNR == 1 {
  header = FILENAME
  sub(/.*\//, "", header)
  whole = header
  gsub(/^yusb_|\.h$/, "", whole)
  print "/// \\file"
  top = 1
}

function enter(name) {
  leave()
  inside = name
  print "/// \\addtogroup " name " " title[name] "\n" description "/// @{"
  description = ""
}
function leave() {
  if (inside != "") print "/// @}"
  inside = ""
}

# The kind of a sentence, as a command of Doxygen's that takes it.
function classified(sentence) {
  if (match(sentence, /^`[a-z_]+` /)) return "\\param " substr(sentence, 2, RLENGTH - 3) " " substr(sentence, RLENGTH + 1)
  if (sentence ~ /^(True|False)[ ,;.]/) return "\\return " sentence
  if (sentence ~ /^Throws std::/) return "\\throws " substr(sentence, 8)
  if (sentence ~ /^Takes (the|all|no) /) return "\\par Locks\n" sentence
  if (sentence ~ /^Since [0-9]/) return "\\since " substr(sentence, 7)
  return sentence
}

# Writes the comment above a declaration.
function write_block(declaration,    i, n, sentence, sentences, ordered, text, name) {
  if (block == "") return
  text = block
  block = ""
  gsub(/the top of this file/, "\\ref " header " \"the top of this file\"", text)
  if (text !~ /\n   / && declaration ~ /[(]/) {
    gsub(/\n/, " ", text)
    gsub(/  +/, "\n\n", text)  # an empty line
    gsub(/[.] /, ".\001", text)
    n = split(text, sentences, "\001")
    text = ""
    for (i = 1; i <= n; i++) {
      sentence = classified(sentences[i])
      if (sentence != sentences[i]) ordered = 1
      else if (ordered && sentence !~ /^It /) ordered = 0
      else if (i > 1 || ordered) {
        text = text sentence "\n"
        continue
      }
      text = text (i > 1 ? "\n" : "") sentence "\n"
    }
  }
  sub(/\n$/, "", text)
  gsub(/\n/, "\n" indent "/// ", text)
  gsub(/\\x/, "\\\\\\\\x", text)
  print indent "/// " text
  for (name in member) {
    if (inside == "" && declaration ~ "(class YUSB_EXPORT|enum|using) " name "( |$)") print "/// \\ingroup " member[name]
  }
}

top && /^\/\// {
  sub(/^\/\//, "///")
  sub(/^\/\/\/   /, "///     ")
  print
  next
}
{ top = 0 }

/^\/\/ ---- .* ----$/ {
  heading = $0
  gsub(/^\/\/ ---- | ----$/, "", heading)
  pending = group[heading]
  next
}
/^ *\/\// {
  line = $0
  indent = substr(line, 1, match(line, /\/\//) - 1)
  sub(/^ *\/\/ ?/, "", line)
  block = block == "" && !pending ? line : block "\n" line
  next
}
{
  if (pending && ($0 == "" || block == "")) {
    # What follows a heading without a declaration is about the group.
    gsub(/\n/, "\n/// ", block)
    description = block == "" ? "" : "///" block "\n"
    block = ""
    enter(pending)
    pending = ""
  } else if (pending) {
    enter(pending)
    pending = ""
    sub(/^\n/, "", block)
  }
  write_block($0)
}
/^}  \/\/ namespace yusb$/ { leave() }
/^#endif/ { leave() }
/^[}#]/ { print }
/^namespace yusb \{$/ && whole in title {
  print
  enter(whole)
  next
}
/^}  \/\/ namespace yusb$/ && header == "yusb.h" { enter("layers") }
/^[}#]/ { next }
{
  sub(/ +\/\/ NOLINT.*$/, "")
  if (match($0, /[^ ] +\/\/ /)) {
    note = substr($0, RSTART + RLENGTH)
    $0 = substr($0, 1, RSTART) "  ///< " note
  }
  print
}
