#!/usr/bin/env bash
# The checks behind `./dev lint`: lint.sh ROOT BUILD [CHECK ...], where BUILD is up to date for symbols and exports.
set -uo pipefail

root=$1 build=$2
shift 2
checks=(format wording includes tidy symbols exports shell)
cd "$root" || exit 1

failures=0
fail() {
    printf '%s: %s\n' "$check" "$*" >&2
    failures=$((failures + 1))
}

# Every file that is tracked or about to be (without git: that no build has made), if its name matches one of
# the patterns.
files() {
    local f pattern
    if git rev-parse --git-dir >/dev/null 2>&1; then
        git ls-files --cached --others --exclude-standard --deduplicate
    else
        find . \( -path './build*' -o -path ./.git \) -prune -o -type f -printf '%P\n'
    fi | while IFS= read -r f; do
        [ -f "$f" ] || continue
        for pattern in "${@:-*}"; do
            # shellcheck disable=SC2053 # a pattern it is
            if [[ $f == $pattern ]]; then
                printf '%s\n' "$f"
                break
            fi
        done
    done
}
sources() { files '*.c' '*.h' '*.cpp' '*.hpp'; }

# Layout as .clang-format has it.
check_format() {
    local log f
    log=$(sources | xargs -d '\n' clang-format --dry-run -Werror 2>&1) && return
    f=$(sed -n 's/^\([^: ]*\):.*error:.*/\1/p' <<<"$log" | sort -u)
    while IFS= read -r f; do fail "$f; ./dev format puts it right"; done <<<"${f:-$log}"
}

# No tabs, no blanks at the end of a line, a newline at the end of a file, no file that has grown too long.
check_wording() {
    local f lines
    while IFS= read -r f; do
        grep -qP '\t' "$f" && fail "$f has tabs"
        grep -qP '[ \r]$' "$f" && fail "$f has blanks at the end of a line"
        [ -z "$(tail -c 1 "$f")" ] || fail "$f does not end with a newline"
        case $f in
            *.c | *.h | *.cpp | *.hpp)
                lines=$(wc -l <"$f")
                [ "$lines" -le 450 ] || fail "$f has $lines lines; split it"
                ;;
        esac
    done < <(files | grep -v '^fuzz/corpus/' | xargs -d '\n' grep -Il '')
}

# Rooms include one way only, from the right to the left.
rooms=(simd stream analysis psy coding api engine)
# Those of tools/: which rooms a room may include beside itself. The programs do not know each other. What plugins have
# of them is `settings`.
declare -A tool_rooms=(
    [settings]='' [common]='settings' [parser]='common settings' [input]='common settings' [output]='common settings loudness'
    [loudness]='common' [jobs]='common settings input loudness output'
    [check]='common settings parser input output jobs'
    [velaenc]='common settings loudness parser input output jobs check'
    [velainfo]='common settings loudness parser input output jobs'
)
# FILE:INCLUDED; the file says why.
exceptions=(
    tools/jobs/stream_encoder.cpp:api/encoder.hpp
    tools/velaenc/trace_file.cpp:coding/bit_allocation.hpp
    tools/velainfo/source_analysis.cpp:{analysis/filterbank.hpp,analysis/pcm_input.hpp,psy/standard_model.hpp}
    tools/velainfo/synthesis.cpp:analysis/window_table.hpp
)
rank() {
    local i
    for i in "${!rooms[@]}"; do [ "${rooms[i]}" = "$1" ] && printf '%s' "$i" && return; done
    return 1
}
may_include() { # FILE INCLUDED
    local file=$1 included=$2 from to
    case $file in tests/* | bench/* | fuzz/*) return 0 ;; esac
    [[ " ${exceptions[*]} " != *" $file:$included "* ]] || return 0
    case $included in
        vela_enc_mp1a/*) return 0 ;;
        *..*) return 1 ;;
    esac
    case $file in
        src/*/*)
            from=${file#src/} to=${included%%/*}
            from=${from%%/*}
            [ "$from/$to" != psy/analysis ] && [ "$(rank "$to")" -le "$(rank "$from")" ] 2>/dev/null
            ;;
        tools/*/*)
            from=${file#tools/} to=${included%%/*}
            from=${from%%/*}
            [[ -v tool_rooms[$from] && " $from ${tool_rooms[$from]} " == *" $to "* ]]
            ;;
        plugins/*) [[ ${included%%/*} == settings || $included != */* ]] ;;
        examples/*) [[ $included != */* ]] ;;
        *) return 1 ;;
    esac
}
check_includes() {
    local file line included room
    room=$(IFS='|' && printf '%s' "${rooms[*]}")
    while IFS=: read -r file line included; do
        may_include "$file" "$included" || fail "$file:$line must not include $included"
    done < <(sources | xargs -d '\n' grep -HnoP '^\s*#\s*include\s*("\K[^"]+|<\K('"$room"')/[^>]+)')
}

# clang-tidy over every file that the build compiles, each by itself.
check_tidy() {
    local quiet=(--quiet) configs tree="$build/tidy/tree" plan="$build/tidy"
    [ -t 1 ] && quiet=()
    mapfile -t configs < <(files '*.clang-tidy' | sed "s|^|$root/|")
    cmake -S "$root" -B "$tree" -G Ninja -DVELA_JOIN_SOURCES=OFF >"$plan.log" 2>&1 || {
        fail "$(cat "$plan.log")"
        return
    }
    cp "$tree/compile_commands.json" "$plan"
    python3 "$root/cmake/tidy_plan.py" "$root" "$plan" "${configs[@]}"
    ninja -C "$plan" -k 0 "${quiet[@]}" 2>&1 | grep -v '^FAILED: \|^clang-tidy \|^ninja: '
    [ "${PIPESTATUS[0]}" -eq 0 ] || fail "the whole messages are in $plan/*.log"
}

# Every function that the linker may merge and that was compiled for one level lies in that level's namespace.
# Otherwise the copy that it keeps for everyone might need instructions that a machine lacks. Constants may be
# shared, and so may the compiler's own references to the runtime (DW.ref): they hold no instructions. Nor may
# anything of a level run when the library is loaded. The core under sanitizers, which has a start of its own, is not
# optimised: what only optimising inlines shows there.
check_symbols() {
    local object core level pattern symbol
    local -A found=()
    while IFS= read -r object; do
        core=${object#*/mp1a_} level=${object#*/mp1a_*_}
        core=${core%%_*} level=${level%%.dir/*}
        found[$core]=1
        pattern="^_Z(GV|GR|T[VTIS])?Z*N[rVK]*[RO]?4vela${#level}${level}[0-9]|^DW\.ref\."
        while IFS= read -r symbol; do
            fail "$(c++filt "$symbol") is weak in level $level, in ${object#"$build"/}"
        done < <(nm -f sysv --defined-only "$object" |
            awk -F' *[|] *' '$3 ~ /^[VvWwu]$/ && $NF !~ /^\.rodata/ { print $1 }' | grep -vE "$pattern")
        [ "$core" = core ] && grep -qE '\.(init_array|ctors)' <<<"$(readelf -SW "$object")" &&
            fail "${object#"$build"/} has code that runs at load"
    done < <(find "$build/src" -path '*/mp1a_*_*.dir/*.o')
    [ "${found[*]-}" = '1 1' ] || fail 'kernels, optimised and not, were not found'
}

# The library's surface: its names, its soname, what it needs.
exports=(get_encMP1A mpegOutAudioChkSettings mpegOutAudioDefaults mpegOutAudioDone mpegOutAudioFree
    mpegOutAudioInit mpegOutAudioNew mpegOutAudioPutBytes)
check_exports() {
    local library="$build/lib/libvela_enc_mp1a.so.2.0"
    diff <(printf '%s\n' "${exports[@]}") <(nm -D --defined-only "$library" | awk '{ print $NF }' | sort) >&2 ||
        fail 'other names are exported (>) than should be (<)'
    grep -qF 'soname: [libvela_enc_mp1a.so.2.0]' <<<"$(readelf -dW "$library")" || fail 'the soname is another one'
    readelf -dW "$library" | grep NEEDED | grep -vE '\[(libc\.so\.6|libm\.so\.6|ld-linux[^]]*)\]' >&2 &&
        fail 'another library is needed'
    readelf -dW "$library" | grep -E 'RPATH|RUNPATH|TEXTREL' >&2 && fail 'there is a run path or a text relocation'
}

# The scripts.
check_shell() {
    files dev .ci/run '*.sh' | xargs -d '\n' shellcheck || fail 'see above'
}

[ $# -gt 0 ] || set -- "${checks[@]}"
for check in "$@"; do
    declare -F "check_$check" >/dev/null || {
        printf 'lint: unknown check "%s"; there are: %s\n' "$check" "${checks[*]}" >&2
        exit 1
    }
done
for check in "$@"; do
    before=$failures
    "check_$check"
    [ "$failures" -eq "$before" ] && printf '%s: ok\n' "$check"
done
[ "$failures" -eq 0 ]
