# Converts the comments of a header for Doxygen. Headers contain plain prose; the start of a sentence decides what it
# documents: "`name` ..." a parameter, "True ...", "False ..." and "Returns ..." the result, "Throws ..." exceptions,
# "Takes ..." locks, "Since VERSION." the version that added it. Without "Since" that is the header's version. A heading
# ("---- Devices ----") begins a group; so does the namespace of a header that is one group. In a header for C, sentences
# that begin with a status document the result, and the headers of libYorvanUsbC are two groups.
BEGIN {
  title["life"] = "Life cycle"
  title["events"] = "Contexts and events"
  title["devices"] = "Devices"
  title["layers"] = "Underlying functions"
  title["watcher"] = "Watchers and queues"
  title["filter"] = "Filters"
  title["details"] = "Device details"
  title["openable"] = "Waiting until a device can be opened"
  title["openable_queue"] = "A queue that reports openable devices"
  title["location"] = "Port paths and location IDs"
  title["bus"] = "State of the bus"
  title["c_library"] = "The library for C"
  title["c_simulator"] = "The simulated bus for C"
  title["simulator"] = "Simulated bus"
  group["Life cycle"] = "life"
  group["Contexts"] = "events"
  group["Devices"] = "devices"
  group["Tests of a record (no lock; allowed everywhere)"] = "devices"
  group["Underlying functions"] = "layers"
  member["YUsbInfoDevice"] = member["device_visitor"] = "devices"
  since["yusb_details.h"] = since["yusb_openable.h"] = since["yusb_openable_queue.h"] = since["yusb_location.h"] = "5.1.0"
  since["yusb_c_devices.h"] = since["yusb_c_events.h"] = since["yusb_c_simulator.h"] = "5.1.0"
  since["YString.h"] = since["YLog.h"] = since["Yorvan.h"] = "2.0.0"
  member["_yusb_device_event"] = member["yusb_device_event_interface"] = "events"
}

FNR == 1 {
  header = FILENAME
  sub(/.*\//, "", header)
  whole = header
  gsub(/^yusb_|\.h$/, "", whole)
  sub(/^c(_devices|_events)?$/, "c_library", whole)  # "c" is the page docs/c.md
  print "/// \\file"
  linkage = ""
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

# The sentence with Doxygen's command for what it documents.
function classified(sentence,    names) {
  if (match(sentence, /^(`[a-z_]+`, )*`[a-z_]+` and `[a-z_]+` /)) {
    names = substr(sentence, 1, RLENGTH - 1)
    gsub(/, | and /, ",", names)
    gsub(/`/, "", names)
    return "\\param " names " " substr(sentence, RLENGTH + 1)
  }
  if (match(sentence, /^`[a-z_]+` /)) return "\\param " substr(sentence, 2, RLENGTH - 3) " " substr(sentence, RLENGTH + 1)
  if (sentence ~ /^(True|False)[ ,;.]/) return "\\return " sentence
  if (sentence ~ /^Returns /) return "\\return " toupper(substr(sentence, 9, 1)) substr(sentence, 10)
  if (sentence ~ /^YUSB_[A-Z_]+[ ,.:]/) return "\\return " sentence
  if (sentence ~ /^Throws std::/) return "\\throws " substr(sentence, 8)
  if (sentence ~ /^Takes .*lock/) return "\\par Locks\n" sentence
  if (sentence ~ /^Since [0-9]/) return "\\since " substr(sentence, 7)
  return sentence
}

# Writes the comment above a declaration.
function write_block(declaration,    i, n, sentence, sentences, ordered, text, name) {
  if (block == "") return
  text = block
  block = ""
  gsub(/the top[ \n]of[ \n]this[ \n]file/, "\\ref " header " \"the top of this file\"", text)
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
  if (declaration ~ /[(]|^(class|struct|enum|using) / && text !~ /\\since/)
    text = text "\n\n\\since " (header in since ? since[header] : "5.0.0")
  gsub(/\n/, "\n" indent "/// ", text)
  gsub(/\\x/, "\\\\\\\\x", text)
  shared = indent "/// " text
  print shared
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
  pending = linkage ? "" : group[heading]
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
    # A comment below a heading that no declaration follows describes the group.
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
  # A declaration directly below another one shares its comment.
  if (block == "" && ended && /[(].*;/ && shared != "" && match($0, /[^ ]/) == length(indent) + 1) print shared
  if ($0 == "") shared = ""
  ended = /;( *\/\/.*)?$/
  write_block($0)
}
/^}  \/\/ namespace yusb$/ { leave() }
/^extern "C" \{$/ { linkage = "opens" }
/^#endif/ && linkage == "opens" {
  print
  linkage = "open"
  enter(whole)
  next
}
/^#ifdef __cplusplus/ || /^#endif/ { leave() }
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
