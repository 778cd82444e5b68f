# A program's --help as a manual page or as a shell's completion, so that options are written down once.
# Usage: PROGRAM --help | awk -v to=man|bash|zsh|fish -v program=NAME -v version=VERSION [-v also=PAGES] [-v docs=FOLDER]
#            -f help_to.awk
# PAGES are other pages, as `velainfo(1) ...`; FOLDER is where what the help calls docs/ is installed.
#
# The help is a description, "Usage:", groups of options ("Options:", two blanks before each name, the explanation
# from column 31 on or in the next lines), and paragraphs; a paragraph that ends with a colon heads a list.

{ line[NR] = $0 }

END {
    read_help()
    if (to == "man") write_man()
    else if (to == "bash") write_bash()
    else if (to == "zsh") write_zsh()
    else if (to == "fish") write_fish()
    else exit 1
}

function read_help(    i, group) {
    for (i = 1; i <= NR && line[i] !~ /^Usage:/; ++i) description[++descriptions] = line[i]
    usage = substr(line[i], 8)
    for (++i; i <= NR; ++i) {
        if (line[i] ~ /^[^ ].*:$/ && line[i + 1] ~ /^  (-|[A-Z])/) {
            group = substr(line[i], 1, length(line[i]) - 1)
        } else if (line[i] == "") {
            group = ""
        } else if (group != "" && line[i] ~ /^  [^ ]/) {
            i = read_option(i, group)
        } else {
            break
        }
    }
    for (; i <= NR; ++i) closing[++closings] = line[i]
}

# names[n] "-j,--jobs", value[n] "N" or "a|b", text[n], group_of[n]; returns the last line read.
function read_option(i, group,    head, at) {
    at = match(substr(line[i], 3), /   */)
    if (at > 0) at += 2
    else if (line[i + 1] !~ /^          /) at = 30
    head = at > 0 ? substr(line[i], 3, at - 3) : substr(line[i], 3)
    text[++options] = at > 0 ? substr(line[i], at) : ""
    while (line[i + 1] ~ /^          /) text[options] = text[options] " " line[++i]
    gsub(/^ +| +$/, "", text[options])
    gsub(/   */, " ", text[options])
    group_of[options] = group
    sub(/ (Needs|Excludes|REQUIRED).*/, "", head)
    sub(/[{]false[}]/, "", head)
    at = index(head, " ")
    names[options] = at > 0 ? substr(head, 1, at - 1) : head
    value[options] = at > 0 ? substr(head, at + 1) : ""
    sub(/ *\[.*\]/, "", value[options])
    return i
}

function roff(s) {
    gsub(/\\/, "\\e", s)
    gsub(/-/, "\\-", s)
    sub(/^[.']/, "\\\\\\&&", s)
    return s
}

function write_man(    i, n, previous, flowing) {
    printf ".TH %s 1 \"\" \"vela_enc_mp1a %s\" \"User Commands\"\n", toupper(program), version
    sub("^" program ": ", "", description[1])
    printf ".SH NAME\n%s \\- %s\n.SH SYNOPSIS\n.B %s\n%s\n.SH DESCRIPTION\n", program, roff(description[1]), program,
        roff(substr(usage, index(usage, program) + length(program) + 1))
    for (i = 2; i <= descriptions; ++i) print roff(description[i])
    for (n = 1; n <= options; ++n) {
        if (group_of[n] != previous) printf ".SH %s\n", toupper(previous = group_of[n])
        i = names[n]
        gsub(/,/, ", ", i)
        printf ".TP\n.BR \"%s\"%s\n%s\n", roff(i), value[n] == "" || value[n] == "TEXT" ? "" : " \" " roff(value[n]) "\"",
            roff(text[n])
    }
    write_notes()
    n = split(also, page, " ")
    for (i = 1; i <= n; ++i) {
        sub(/\(/, " (", page[i])
        printf "%s.BR %s%s\n", i == 1 ? ".SH SEE ALSO\n" : "", page[i], i < n ? "," : ""
    }
}

# Paragraphs and lists; a list has its explanations in one column, which its first item shows.
function write_notes(    i, s, at, list, heading, column) {
    heading = ".SH NOTES"
    for (i = 1; i <= closings; ++i) {
        s = closing[i]
        gsub(/docs\//, docs, s)
        if (s == "") {
            if (heading == "") heading = ".PP"
        } else if (s ~ /^(Examples|Exit codes):$/) {
            heading = s ~ /^Ex.t/ ? ".SH EXIT STATUS" : ".SH EXAMPLES"
        } else if (s ~ /^  /) {
            if (!list) column = match(substr(s, 3), /   */) ? RSTART + RLENGTH + 2 : 0
            if (heading != ".PP" && heading != "") print heading
            at = column > 0 && substr(s, column - 1, 1) == " " ? column : match(substr(s, 3), /   */) + RLENGTH + 2
            printf ".TP\n.B %s\n%s\n", roff(trimmed(substr(s, 3, at - 3))), roff(substr(s, at))
            heading = ""
        } else {
            if (heading != "" || list) print heading == "" ? ".PP" : heading
            print roff(s)
            heading = ""
        }
        list = s ~ /^  /
        if (s == "" && heading == "") heading = ".PP"
    }
}

function trimmed(s) {
    sub(/ +$/, "", s)
    return s
}

# The words that a value is one of, or "".
function words(n,    w) {
    if (value[n] !~ /[|]/) return ""
    w = value[n]
    sub(/[|][A-Z]+$/, "", w)
    gsub(/[|]/, " ", w)
    return w
}

function is_file(n) { return value[n] ~ /FILE|DIR|FOLDER|PATH|LIST/ }
function is_folder(n) { return value[n] ~ /DIR|FOLDER/ }

function write_bash(    n, all, flat) {
    printf "# bash completion for %s\n_%s() {\n    local word=$2 option=$3 prefix=\n", program, program
    # What stands behind --preset= is a word of its own, as = is, unless the user has it otherwise.
    printf "    [[ $option != = ]] || option=${COMP_WORDS[COMP_CWORD - 2]}\n"
    printf "    [[ $word != = ]] || word=\n"
    printf "    [[ $word != --*=* ]] || { option=${word%%%%=*} && prefix=$option= && word=${word#*=}; }\n"
    printf "    COMPREPLY=()\n    case $option in\n"
    for (n = 1; n <= options; ++n) {
        if (names[n] !~ /^-/) continue
        flat = names[n]
        gsub(/,/, " ", flat)
        all = all (all == "" ? "" : " ") flat
        if (value[n] == "") continue
        gsub(/ /, " | ", flat)
        printf "        %s)\n", flat
        if (words(n) != "") printf "            mapfile -t COMPREPLY < <(compgen -P \"$prefix\" -W '%s' -- \"$word\")\n", words(n)
        else if (is_file(n)) printf "            mapfile -t COMPREPLY < <(compgen -P \"$prefix\" -%s -- \"$word\")\n", is_folder(n) ? "d" : "f"
        printf "            return\n            ;;\n"
    }
    printf "    esac\n    case $word in\n        -*) mapfile -t COMPREPLY < <(compgen -W '%s' -- \"$word\") ;;\n", all
    printf "        *) mapfile -t COMPREPLY < <(compgen -f -- \"$word\") ;;\n    esac\n}\ncomplete -o filenames -F _%s %s\n", program, program
}

function write_zsh(    n, i, count, name, quoted, action) {
    printf "#compdef %s\n_arguments \\\n", program
    for (n = 1; n <= options; ++n) {
        if (names[n] !~ /^-/) continue
        quoted = text[n]
        gsub(/'/, "'\\''", quoted)
        gsub(/\[|\]|:/, "\\\\&", quoted)
        action = value[n] == "" ? "" : ":" value[n] ":"
        if (words(n) != "") action = ":value:(" words(n) ")"
        else if (is_file(n)) action = action (is_folder(n) ? "_files -/" : "_files")
        count = split(names[n], name, ",")
        for (i = 1; i <= count; ++i) printf "    '%s%s[%s]%s' \\\n", name[i],
            value[n] == "" ? "" : name[i] ~ /^--/ ? "=" : "+", quoted, action
    }
    printf "    '*:file:_files'\n"
}

function write_fish(    n, i, count, name, quoted) {
    for (n = 1; n <= options; ++n) {
        if (names[n] !~ /^-/) continue
        printf "complete -c %s", program
        count = split(names[n], name, ",")
        for (i = 1; i <= count; ++i) printf name[i] ~ /^--/ ? " -l %s" : " -s %s", substr(name[i], name[i] ~ /^--/ ? 3 : 2)
        if (words(n) != "") printf " -x -a '%s'", words(n)
        else if (is_folder(n)) printf " -x -a '(__fish_complete_directories)'"
        else if (is_file(n)) printf " -r -F"
        else if (value[n] != "") printf " -x"
        quoted = text[n]
        gsub(/\\|'/, "\\\\&", quoted)
        printf " -d '%s'\n", quoted
    }
}
