# Links of a document, as it is installed: those to files that another package has, or none, become plain words.
# Usage: awk -v here="FILE ..." -f installed_links.awk DOCUMENT, where FILEs are what lies in its folder then

{
    while (match($0, /\[[^][]*\]\([^()]*\)/)) {
        parts = split(substr($0, RSTART + 1, RLENGTH - 2), part, /\]\(/)
        target = part[parts]
        sub(/^(docs|\.\.)\//, "", target)
        linked = target ~ /^(https:|#)/ || index(" " here " ", " " target " ")
        printf "%s%s", substr($0, 1, RSTART - 1), linked ? "[" part[1] "](" target ")" : part[1]
        $0 = substr($0, RSTART + RLENGTH)
    }
    print
}
