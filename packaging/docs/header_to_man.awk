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

function write_comment() {
    write_text()
    lines = 0
    state = ""
}

function end_declaration(    i) {
    print ".PP\n.nf"
    for (i = 1; i <= declared; ++i) print roff(declaration[i])
    declared = 0
    print ".fi\n.RS"
    write_comment()
    print ".RE"
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

# One comment may stand over several macros.
state == "macro" && /^#define/ { state = "declaration" }
state == "macro" { end_declaration() }

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
    if (head) write_comment()
    else state = "declaration"
    next
}

# Of what differs by language, C has the page.
/^#if.*__cplusplus/ { in_cplusplus = 1 }
/^#elif/ { next }
/^#(else|endif)/ { in_cplusplus = 0 }
/^#(if|else|endif|pragma)/ { next }

# A declaration without a comment is one line.
state == "" && /^typedef .*;$/ { state = "declaration" }

state == "declaration" && !in_cplusplus {
    sub(/^MPEG_A_API /, "")
    sub(/ MPEG_A_NOEXCEPT/, "")
    declaration[++declared] = $0
    depth += gsub(/[{(]/, "&") - gsub(/[})]/, "&")
    if (/^#define/) state = "macro"
    else if (depth == 0 && /;$/) end_declaration()
}

END {
    print ".SH SEE ALSO\n.BR velaenc (1),\n.BR velainfo (1)"
}
