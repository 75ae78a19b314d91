# Turns the plain comments of a public header into what Doxygen reads as documentation. The text in
# them is plain too, so characters that Doxygen would act on are escaped, except in code.
FNR == 1 && /^\/\*$/ { print "/** @file"; inside = 1; next }
!inside && /^ *\/\*( |$)/ { sub(/\/\*/, "/**"); inside = 1 }
inside && !/^ \*     / {
    start = match($0, /\/\*\*/) ? RSTART + 2 : (match($0, /^ *\*/) ? RLENGTH : 0)
    head = substr($0, 1, start)
    text = substr($0, start + 1)
    tail = ""
    if (match(text, /\*\/.*$/)) { tail = substr(text, RSTART); text = substr(text, 1, RSTART - 1) }
    gsub(/[\\@#<>%*]/, "\\\\&", text)
    $0 = head text tail
}
/\*\// { inside = 0 }
{ print }
