#!/usr/bin/env bash
#
# Builds the library and programs for each method and for accounting, each a static program with musl on the OS
# layer of tests/external-platform, and logs in at a real server.
# Debian has neither libcrypto nor SQLite for musl: both are built once from
# Debian's sources, into build/musl, libcrypto with what the library uses of it.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

folder=$PWD/build/musl
apt=$folder/.apt
mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial" "$apt/sources" "$folder/objects"
cd "$folder"

# Where this machine's packages come from, their sources are too.
fetch_sources() {
    local file
    : >"$apt/status"
    for file in /etc/apt/sources.list.d/*.sources; do
        [[ ! -e $file ]] || sed 's/^Types:.*/Types: deb-src/' "$file" >"$apt/sources/${file##*/}"
    done
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ ! -e $file ]] || sed -n 's/^deb /deb-src /p' "$file" >"$apt/sources/${file##*/}.list"
    done
    local options=(-q -o Dir::State="$apt/state" -o Dir::State::status="$apt/status" -o Dir::Cache="$apt/cache"
        -o Dir::Etc::sourceparts="$apt/sources" -o Dir::Etc::sourcelist=/dev/null
        -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none)
    apt-get "${options[@]}" update || echo "test-musl: not all lists could be read" >&2
    apt-get "${options[@]}" source openssl/bookworm sqlite3
}
[[ -d $(echo openssl-3*) && -d $(echo sqlite3-3*) ]] || fetch_sources
openssl=$(echo "$folder"/openssl-3*/)
sqlite=$(echo "$folder"/sqlite3-3*/)

if [[ ! -e $openssl/libcrypto.a ]]; then
    without=(
        shared asm engine async secure-memory tests dso legacy ec dh dsa cms ct ocsp ts srp bf blake2 chacha poly1305
        siphash rc2 aria camellia cast idea seed sm2 sm3 sm4 whirlpool rmd160 mdc2 ui-console scrypt siv ocb gost err
        comp cmp psk srtp)
    (
        cd "$openssl"
        CC=musl-gcc ./Configure linux-x86_64 -O1 "${without[@]/#/no-}"
        nice make -j "$jobs" build_generated
        nice make -j "$jobs" libcrypto.a
    ) >openssl.log 2>&1 || { tail openssl.log; exit 1; }
fi
if [[ ! -e objects/sqlite3.o ]]; then
    (
        cd "$sqlite"
        ./configure --disable-tcl --disable-shared
        nice make sqlite3.c
        nice musl-gcc -O1 -DSQLITE_OMIT_LOAD_EXTENSION -c sqlite3.c -o "$folder/objects/sqlite3.o"
    ) >sqlite.log 2>&1 || { tail sqlite.log; exit 1; }
fi
mkdir -p include
cp "$sqlite/sqlite3.h" include

# compile SOURCE: C, or C++ by the C compiler; the library needs headers of C++ and no run-time library.
cd ../..
common=(-O2 -DNDEBUG -I. -Isrc -Iinclude -isystem platform/include -isystem "$openssl/include" -isystem "$folder/include")
machine=$(gcc -print-multiarch)
cxx=(-x c++ -std=c++20 -fno-exceptions -fno-rtti -isystem /usr/include/c++/12
    -isystem "/usr/include/$machine/c++/12" -isystem /usr/include/x86_64-linux-musl
    -include cmake/toolchains/musl_names.h
    -DOPENSSL_API_COMPAT=0x10100000L '-DLANYARD_DEFAULT_DICTIONARY=""'
    '-DLANYARD_VERSION="musl"')
compile() {
    local object=$folder/objects/${1//\//_}.o
    case $1 in
        *.c) nice musl-gcc -D_GNU_SOURCE "${common[@]}" -c "$1" -o "$object" ;;
        *) nice musl-gcc "${cxx[@]}" "${common[@]}" -c "$1" -o "$object" ;;
    esac
}
programs=(radauth radchap radmschap radmschapv2 radacct)
rm -f "$folder/objects"/*_*.o "$folder"/*.a
for source in src/*/*.cpp tests/external-platform/*.c; do
    compile "$source"
done
ar rcs "$folder/liblanyard-radius.a" "$folder/objects"/src_*.o
ar rcs "$folder/libexternal-platform.a" "$folder/objects"/tests_*.o
for program in "${programs[@]}"; do
    nice musl-gcc "${cxx[@]}" "${common[@]}" "-DLANYARD_PROGRAM=\"$program\"" -c tools/requests.cpp \
        -o "$folder/objects/$program.o"
    musl-gcc -static -o "$folder/$program" "$folder/objects/$program.o" "$folder/liblanyard-radius.a" \
        "$folder/libexternal-platform.a" "$folder/objects/sqlite3.o" "$openssl/libcrypto.a"
done

cmake --preset dev "${cmake_options[@]}" >/dev/null
nice cmake --build --preset dev -j "$jobs" --target lanyard-test-server
coproc SERVER { exec build/dev/bin/lanyard-test-server; }
# shellcheck disable=SC2153  # coproc sets it
server_pid=$SERVER_PID
trap 'kill "$server_pid" 2>/dev/null || true' EXIT
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
printf 'authserver 127.0.0.1:%s:10:3:%s\nacctserver 127.0.0.1:%s:10:3:%s\n' \
    "${at[auth_port]}" "${at[secret]}" "${at[acct_port]}" "${at[secret]}" >"$folder/radius.conf"

# expect STATUS TEXT PROGRAM [ARGUMENT...]
expect() {
    local expected=$1 text=$2 program=$3 status=0 output
    shift 3
    output=$("$folder/$program" "$@" 2>&1) || status=$?
    if [[ $status -ne $expected || $output != *"$text"* ]]; then
        echo "test-musl: $program $* ended with $status: $output" >&2
        exit 1
    fi
}
for program in radauth radchap 'radmschap --builtin' 'radmschapv2 --builtin --standard-sha1'; do
    read -r -a login <<<"$program -f $folder/radius.conf alice"
    expect 0 '"alice" RADIUS Authentication OK' "${login[@]}" wonderland
    expect 1 '"alice" RADIUS Authentication failure' "${login[@]}" looking-glass
done
expect 0 'RADIUS Accounting Exchange OK' radacct -f "$folder/radius.conf"
echo "test-musl: static programs of some $(($(stat -c %s "$folder/radauth") / 1024)) KiB log in and account"
