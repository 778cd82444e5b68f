# The doc comments of C headers as a manual page in section 3.
# Usage: awk -v version=VERSION -f header_to_man.awk include/vela_enc_mp1a/encoder.h ...

function roff(s) {
    gsub(/\\/, "\\e", s)
    gsub(/-/, "\\-", s)
    sub(/^[.']/, "\\\\\\&&", s)
    return s
}

# Text flows; what is indented stays as it is laid out.
function write_text(    i, fixed, s, at) {
    for (i = 1; i <= lines; ++i) {
        s = comment[i]
        if ((s ~ /^    /) != fixed && s != "" && !in_tag) {
            fixed = !fixed
            print fixed ? ".nf" : ".fi"
        }
        if (s ~ /^@param /) {
            sub(/^@param +/, "", s)
            at = index(s, " ")
            printf ".TP\n.I %s\n", roff(substr(s, 1, at - 1))
            s = substr(s, at)
            in_tag = 1
        } else if (s ~ /^@return /) {
            print ".TP\n.I result"
            sub(/^@return /, "", s)
            in_tag = 1
        }
        if (!fixed) sub(/^ +/, "", s)
        if (in_tag && s == "") in_tag = 0
        print s == "" ? ".PP" : roff(s)
    }
    if (fixed) print ".fi"
    in_tag = 0
}

function end_declaration() {
    write_text()
    lines = 0
    state = ""
}

BEGIN {
    printf ".TH VELA_ENC_MP1A 3 \"\" \"vela_enc_mp1a %s\" \"Library Functions\"\n", version
    print ".SH NAME\nvela_enc_mp1a \\- MPEG\\-1 Audio Layer I/II encoder (ISO/IEC 11172\\-3)\n.SH SYNOPSIS\n.nf"
    print ".B #include <vela_enc_mp1a/encoder.h>\n.PP\ncc ... $(pkg\\-config \\-\\-cflags \\-\\-libs vela_enc_mp1a)\n.fi"
}

FNR == 1 {
    name = FILENAME
    sub(/.*include\//, "", name)
    printf ".SH \"%s\"\n", toupper(name)
}

# A comment of a declaration starts in the first column; those of members are part of their record.
state == "" && /^\/\*\*/ {
    state = "comment"
    head = FNR == 1
    lines = 0
    sub(/^\/\*\* ?/, "")
    $0 = " *  " $0
}

state == "comment" {
    ended = /\*\/$/
    sub(/ *\*\/$/, "")
    sub(/^ \*/, "")
    sub(/^ /, "")
    sub(/^ /, "")
    if (!(ended && $0 == "")) comment[++lines] = $0
    if (!ended) next
    if (head) end_declaration()
    else state = "declaration"
    first = 1
    next
}

state == "declaration" {
    if (first) printf ".PP\n.nf\n"
    first = 0
    sub(/^MPEG_A_API /, "")
    sub(/ MPEG_A_NOEXCEPT/, "")
    if ($0 !~ /^#(if|else|endif)/) print roff($0)
    # The record or the prototype is over; a macro has one line.
    if (/^#define/ || /^}.*;$/ || (/;$/ && !/^    /) || /^[^{}]*\).*;$/) {
        print ".fi\n.RS"
        end_declaration()
        print ".RE"
    }
}

END {
    print ".SH SEE ALSO\n.BR velaenc (1)"
}
