#!/usr/bin/env bash
# Packages: made, looked at by lintian, installed into a scratch root and used, upgraded one at a time and back, and
# removed without a trace.
# Usage: packages_test.sh SOURCE BUILD make|lintian|use|upgrade, of which `make` comes first
set -euo pipefail

source=$1 build=$2 made=$2/tests/packaging/made
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
die() {
    printf '%s\n' "$*" >&2
    exit 1
}
pkg_strictly() { dpkg --root="$work/root" --force-not-root --force-script-chrootless "$@" >>"$work/dpkg.log" 2>&1; }
pkg() { pkg_strictly --force-depends "$@"; }

case $3 in
    make)
        rm -rf "$made"
        (umask 027 && cpack --config "$build/CPackConfig.cmake" -B "$made" >"$work/cpack.log") || die "$(cat "$work/cpack.log")"
        exit
        ;;
    lintian)
        complaints=$(lintian --fail-on error,warning "$made"/*.deb 2>&1) || die "$complaints"
        exit
        ;;
esac
debs=("$made"/*.deb)
mkdir -p "$work/root/var/lib/dpkg"
touch "$work/root/var/lib/dpkg/status"
purge() {
    mapfile -t names < <(for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Package; done)
    pkg --purge "${names[@]}" || die "$(cat "$work/dpkg.log")"
    left=$(find "$work/root" -not -type d -not -path '*/var/*' -not -path '*/etc/ld.so.cache')
    [ -z "$left" ] || die "left behind: $left"
}

# Next year's packages; the library's is first.
upgrade() {
    local deb version newer=() older=() folder=$work/newer package
    # What others' packages they depend on counts as installed, in any version.
    for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Depends; done | tr , '\n' | grep -v vela | awk '{ print $1 }' | sort -u |
        while read -r package; do
            printf 'Package: %s\nStatus: install ok installed\nMaintainer: nobody\nArchitecture: %s\nVersion: 999:1\nDescription: none\n\n' \
                "$package" "$(dpkg --print-architecture)"
        done >"$work/root/var/lib/dpkg/status"
    for deb in "$made"/lib*2_*.deb "$made"/[!l]*.deb "$made"/lib*[!2]_*.deb; do
        dpkg-deb -R "$deb" "$folder"
        version=$(dpkg-deb -f "$deb" Version)
        sed -i "s/^Version: .*/Version: $version+1/" "$folder/DEBIAN/control"
        [[ $deb != *-dev_* ]] || sed -i "s/(>= $version)/(>= $version+1)/" "$folder/DEBIAN/control"
        dpkg-deb --root-owner-group -b "$folder" "$work/${deb##*/}" >>"$work/dpkg.log"
        newer+=("$work/${deb##*/}") older=("$deb" "${older[@]}")
        rm -r "$folder"
    done
    pkg_strictly --install "${debs[@]}" || die "$(cat "$work/dpkg.log")"
    for deb in "${newer[@]}" "${older[@]}"; do
        pkg_strictly --install "$deb" || die "$deb goes not by itself: $(tail "$work/dpkg.log")"
        [ "$(dpkg-query --admindir="$work/root/var/lib/dpkg" -W -f='${db:Status-Abbrev}\n' '*vela*' | grep -c '^ii ')" -eq ${#debs[@]} ] ||
            die "$deb takes others with it"
    done
    purge
}
[ "$3" = use ] || {
    upgrade
    exit
}
for deb in "${debs[@]}"; do
    grep -q 'No licence has been granted yet' <<<"$(dpkg-deb -f "$deb" Description)" || die "$deb is silent about its licence"
    dpkg-deb -x "$deb" "$work/all"
done
for holder in 'University of Cincinnati' 'Niels Lohmann'; do
    grep -q "$holder" "$work/all/usr/share/doc/velaenc/copyright" || die "the tools contain code of $holder and do not say so"
done
while IFS=: read -r file link; do
    [ -e "${file%/*}/$link" ] || die "$file links to $link, which is not beside it"
done < <(grep -roP --include='*.md' '\]\(\K(?!https:|#)[^)]+' "$work/all/usr/share/doc")
closed=$(find "$work/all" -mindepth 1 -type d -not -perm 755)
[ -z "$closed" ] || die "not everybody may look into $closed"

# What each binary must show: `readelf OPTION`, the words, what is wrong without them. What the fortified calls and the
# guard of the stack are called, a binary imports.
while IFS= read -r binary; do
    readelf -h "$binary" >/dev/null 2>&1 || continue # a script
    while IFS=';' read -r option words fault; do
        grep -Eq "$words" <<<"$(readelf "-$option" -W "$binary")" || die "$binary $fault"
    done <<'ROWS'
h;Type: +DYN;lies at a fixed address
l;GNU_STACK.* RW ;has an executable stack
l;GNU_RELRO;leaves its tables of addresses writable
d;BIND_NOW;binds lazily
-dyn-syms;__stack_chk_fail;has no guard on its stack
-dyn-syms;__[a-z]*(printf|cpy|set|move|read)_chk;has no fortified calls
ROWS
done < <(find "$work/all" -type f \( -name 'lib*.so*' -o -path '*/bin/*' \))

pkg --install "${debs[@]}" || die "$(cat "$work/dpkg.log")"
usr=$work/root/usr libs=$(dirname "$(find "$work/root" -name 'libvela_enc_mp1a.so.2.0')")
needed=$(readelf -dW "$libs/libvela_enc_mp1a.so.2.0" | grep NEEDED)
[[ $needed == *'[libc.so.6]' && $needed != *$'\n'* ]] || die "the library needs more than libc: $needed"
export LD_LIBRARY_PATH=$libs PKG_CONFIG_PATH=$libs/pkgconfig

# README's program, as a stranger would build it, by each of the three ways to find the library.
awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$source/README.md" >"$work/encode.c"
read -ra flags < <(pkg-config --cflags --libs vela_enc_mp1a)
cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$work/encode.c" -o "$work/by_pkg_config" "${flags[@]}"
cat >"$work/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.22)
project(host C CXX)
if(SOURCE)
    include(FetchContent)
    FetchContent_Declare(vela_enc_mp1a SOURCE_DIR ${SOURCE})
    FetchContent_MakeAvailable(vela_enc_mp1a)
else()
    find_package(vela_enc_mp1a REQUIRED)
endif()
add_executable(by_cmake encode.c)
target_link_libraries(by_cmake PRIVATE vela_enc_mp1a::vela_enc_mp1a)
CMAKE
cmake -S "$work" -B "$work/found" -G Ninja -DCMAKE_PREFIX_PATH="$usr" >"$work/cmake.log"
ninja -C "$work/found" --quiet
# The library's own sources are built elsewhere already; here they need not be once more.
cmake -S "$work" -B "$work/fetched" -G Ninja -DSOURCE="$source" >>"$work/cmake.log"
ninja -C "$work/fetched" --quiet CMakeFiles/by_cmake.dir/encode.c.o
# Ten frames of 1152 stereo samples and a bit: eleven frames of 224000 * 1152 / 48000 / 8 = 672 bytes and 24 ms.
head -c $((10 * 1152 * 4 + 100)) "$libs/libvela_enc_mp1a.so.2.0" >"$work/pcm"
for program in by_pkg_config found/by_cmake; do
    "$work/$program" <"$work/pcm" >"$work/out" 2>"$work/stamps"
    headers=$(od -An -tx1 -v -w672 "$work/out" | cut -c 1-12 | uniq -c)
    [ "$headers" = '     11  ff fc b4 00' ] || die "$program: headers of frames are $headers"
    [ "$(tail -n 1 "$work/stamps")" = '672 bytes up to 0.264 s' ] || die "$program: $(cat "$work/stamps")"
done

# The tool, its manual page and its completions know the same options.
unset LD_LIBRARY_PATH
"$usr/bin/velaenc" --quiet /usr/share/sounds/alsa/Front_Center.wav "$work/installed.mp2"
"$build/bin/velaenc" --quiet /usr/share/sounds/alsa/Front_Center.wav "$work/built.mp2"
cmp "$work/installed.mp2" "$work/built.mp2"
zcat "$usr/share/man/man1/velaenc.1.gz" | sed 's/\\//g' >"$work/page"
# completes EXPECTED LINE ...: the words of a line, of which the last one is completed; `=` is a word of its own.
completes() {
    local expected=$1
    shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    "_${1//-/_}" "$1" "${@: -1}" "${@: -2:1}"
    [[ " ${COMPREPLY[*]} " == *" $expected "* ]] || die "bash completes $* to ${COMPREPLY[*]}"
}
for program in "$usr"/share/bash-completion/completions/*; do
    # shellcheck source=/dev/null
    . "$program"
done
mkdir "$work/built.d"
completes --preset velaenc --p
completes joint velaenc --mode j
completes vcd velaenc --preset = v
completes --preset=vcd velaenc --preset=v
completes "$work/built.d" velaenc --output-dir "$work/built."
for option in $("$usr/bin/velaenc" --help | grep -oE '^  (-.,)?--[a-z-]+' | sed 's/.*--//'); do
    for file in "$work/page" "$usr/share/zsh/vendor-completions/_velaenc"; do
        grep -q -e "--$option" "$file" || die "$file lacks --$option"
    done
    grep -q -e "-l $option " "$usr/share/fish/vendor_completions.d/velaenc.fish" || die "fish lacks --$option"
done

# vela_enc_mp1a(3) has the declarations of the headers, all of them and no other.
tokens() {
    cc -E -P -dD -x c - | sed -E '/^#(undef|pragma|define (MPEG_A_(API|NOEXCEPT) |[^M]))/d; s/__attribute__[^;]*"\)\)\)//' |
        tr '\n' ' ' | sed -E 's/_Static_assert[^;]*;//g' | grep -oE '\w+|[^[:alnum:]_[:space:]]'
}
headers=("$usr"/include/vela_enc_mp1a/{encoder,settings,bufstream}.h)
diff <(for header in "${headers[@]}"; do grep -v '#include' "$header" | tokens; done) \
    <(zcat "$usr/share/man/man3/vela_enc_mp1a.3.gz" |
        awk '/^\.nf/ { block = "" } { block = block $0 "\n" } /^\.RS/ { print block }' |
        sed 's/\\e/\\/g; s/\\-/-/g; /^\./d' | tokens) || die "vela_enc_mp1a(3) has other declarations (>) than the headers (<)"

plugin=$(find "$usr" -name 'libgst*.so')
if [ -n "$plugin" ]; then
    LD_LIBRARY_PATH=$libs GST_REGISTRY=$work/registry GST_PLUGIN_PATH=$(dirname "$plugin") \
        gst-inspect-1.0 velamp2enc >"$work/element" || die "the element does not load"
fi

if [ -e "$usr/bin/vela-twolame" ]; then
    [ "$("$usr/bin/vela-twolame" printenv LD_LIBRARY_PATH)" = "$libs/vela-twolame" ] || die "vela-twolame has another folder"
    zcat "$usr/share/man/man1/vela-twolame.1.gz" | grep -q 'VELA_MODEL' || die "vela-twolame(1) is empty"
    completes --print-folder vela-twolame --pri
fi

purge
