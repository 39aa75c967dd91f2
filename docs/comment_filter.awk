# Doxygen input filter for the public headers (see Doxyfile.in).
#
# The headers document each declaration in a plain C comment. This filter
# hands every such comment to Doxygen as a documentation block: the file's
# first comment becomes the file's description, a comment behind code on the
# same line documents that code (a record field), and any other comment the
# declaration below it. Inside the comments Doxygen's special characters are
# escaped, so that texts such as <stdio.h> come out as written. Text between
# backticks is left alone, it is code. So is quoted text, such as the format
# "%s\n": Doxygen prints a quotation as it stands, up to the next quote mark
# without a backslash in front, even across lines, and an escape added there
# would show as a stray backslash.
BEGIN { in_comment = 0; raw = 0; ticks = 0; quoted = 0; seen_comment = 0; seen_code = 0 }
{
  line = $0; out = ""; i = 1; n = length(line)
  while (i <= n) {
    two = substr(line, i, 2)
    if (!in_comment) {
      if (two == "//") { out = out substr(line, i); break }
      if (two == "/*") {
        in_comment = 1; ticks = 0; quoted = 0; prev = ""
        three = substr(line, i, 3)
        if (three == "/**" || three == "/*!") {
          raw = 1; out = out three; i += 3; continue
        }
        raw = 0
        if (substr(line, 1, i - 1) ~ /[^ \t]/) out = out "/**<"
        else if (!seen_comment && !seen_code) out = out "/** @file\n "
        else out = out "/**"
        seen_comment = 1; i += 2; continue
      }
      c = substr(line, i, 1)
      if (c != " " && c != "\t") seen_code = 1
      out = out c; i++
      continue
    }
    if (two == "*/") { in_comment = 0; out = out two; i += 2; continue }
    c = substr(line, i, 1)
    if (!raw) {
      if (c == "`" && !quoted) ticks = !ticks
      else if (c == "\"" && !ticks && prev != "\\") quoted = !quoted
      else if (!ticks && !quoted && index("\\@<>&#$%", c) > 0) c = "\\" c
    }
    prev = substr(line, i, 1)
    out = out c; i++
  }
  print out
}
