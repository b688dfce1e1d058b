# Converts the documents to pages of Doxygen's site: headings get the anchors that links use, links to documents and
# headers become references, and links to other files of the project become text.
FNR == 1 {
  page = FILENAME
  gsub(/.*\/|\.md$/, "", page)
}
function anchor(heading) {
  heading = tolower(heading)
  gsub(/[^a-z0-9 _-]/, "", heading)
  gsub(/ /, "-", heading)
  return page "-" heading
}
/^```/ { code = !code }
code { print; next }
/^# / { $0 = $0 " {#" page "}" }
/^##+ / {
  text = $0
  sub(/^#+ /, "", text)
  $0 = $0 " {#" anchor(text) "}"
}
{
  rest = $0
  line = ""
  while (match(rest, /!?\[[^]]*\]\([^)]*\)/)) {
    link = substr(rest, RSTART, RLENGTH)
    line = line substr(rest, 1, RSTART - 1)
    rest = substr(rest, RSTART + RLENGTH)
    text = link
    sub(/^!?\[/, "", text)
    sub(/\]\(.*/, "", text)
    target = link
    sub(/.*\]\(/, "", target)
    sub(/\)$/, "", target)
    if (link ~ /^!/ || target ~ /^[a-z]+:/) {
    } else if (target ~ /^#/) {
      link = "[" text "](@ref " page "-" substr(target, 2) ")"
    } else if (target ~ /^[a-z-]+\.md(#.*)?$/) {
      sub(/\.md/, "", target)
      sub(/#/, "-", target)
      link = "[" text "](@ref " target ")"
    } else if (target ~ /include\/.*\.h$/) {
      gsub(/`/, "", text)
      sub(/.*\//, "", target)
      link = "[" text "](@ref " target ")"
    } else {
      link = text
    }
    line = line link
  }
  print line rest
}
