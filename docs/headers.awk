# For Doxygen: turns what the headers say in plain comments into descriptions. The comment at a header's top describes the
# file, and a line like `// --- path texts ---`, with the comment below it, heads a group. Indented lines in a description are
# shown as they stand, for which an empty line has to part them from the rest.
function indent(line) { match(line, /^ */); return substr(line, 1, RLENGTH) }
function described(line) { sub(/\/\//, "///", line); sub(/\/\/\/   /, "///     ", line); return line }
function is_text(line) { return line ~ /^ *\/\/\/ [^ ]/ }
function is_example(line) { return line ~ /^ *\/\/\/     / }
function show(line) {
    if (is_text(waiting) && is_example(line) || is_example(waiting) && is_text(line)) line = indent(line) "///\n" line
    if (NR > 1) print waiting
    waiting = line
}
# The blank line before the next group, or before what is private, ends the group.
function end_group() { if (open && waiting == "") { waiting = "/** @} */"; open = 0 } }

NR == 1 { top = sub(/^\/\/ [A-Za-z]+\.h - /, "/// \\file\n/// \\brief "); show($0); next }
top && /^\/\// { show(described($0)); next }
{ top = 0 }

/^ *\/\/ --- .*[^-] -+$/ {
    end_group()
    title = $0; sub(/^ *\/\/ --- /, "", title); sub(/ -+$/, "", title)
    heading = 1
    show(indent($0) "/// \\name " title)
    next
}
heading && /^ *\/\// { show(described($0)); next }
heading && $0 == "" { heading = 0; open = 1; show("/** @{ */"); next }
/^(private:|};|}  \/\/ namespace)/ { end_group() }
{ show($0) }

END { print waiting; if (open) print "/** @} */" }
