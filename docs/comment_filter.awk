# Doxygen input filter for the public headers (see Doxyfile.in).
#
# The headers document each declaration in a plain C comment. This filter
# hands every such comment to Doxygen as a documentation block: the file's
# first comment becomes the file's description, a comment behind code on the
# same line documents that code (a record field), and any other comment the
# declaration below it. Inside the comments Doxygen's special characters are
# escaped, so that format strings such as "%s\n" and texts such as <stdio.h>
# come out as written; text between backticks is left alone, it is code.
BEGIN { in_comment = 0; raw = 0; ticks = 0; seen_comment = 0; seen_code = 0 }
{
  line = $0; out = ""; i = 1; n = length(line)
  while (i <= n) {
    two = substr(line, i, 2)
    if (!in_comment) {
      if (two == "//") { out = out substr(line, i); break }
      if (two == "/*") {
        in_comment = 1; ticks = 0
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
      if (c == "`") ticks = !ticks
      else if (!ticks && index("\\@<>&#$%", c) > 0) c = "\\" c
    }
    out = out c; i++
  }
  print out
}
