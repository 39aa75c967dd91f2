# Fails when a function exported from a public header has no comment of its
# own: every KU_API declaration must follow a comment, or belong to a run of
# declarations directly under one. Prints each offender as FILE:LINE: NAME.
FNR == 1 { kind = "other"; in_decl = 0 }
{
  line = $0
  if (line ~ /^[ \t]*$/) { if (!in_decl) kind = "other"; next }
  if (!in_decl && line ~ /^[ \t]*KU_API[ \t]/) {
    if (kind != "comment" && kind != "decl") {
      printf "%s:%d: undocumented: %s\n", FILENAME, FNR, line
      bad = 1
    }
    in_decl = 1
  }
  if (in_decl) {
    if (line ~ /;/) { in_decl = 0; kind = "decl" }
    next
  }
  kind = (line ~ /\*\/[ \t]*$/) ? "comment" : "other"
}
END { exit bad }
