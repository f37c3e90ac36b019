#!/usr/bin/env bash
#
# Builds and installs the library without what a device may do without, SQLite not in sight, and logs in with a
# program of a stranger's at the real server. Holds the library's size on disk, stripped.
#
#   minimal.sh CMAKE STRIP TEST_SERVER SOURCE_FOLDER FOLDER MOST_BYTES [CMAKE_OPTION...]
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH

[[ $# -ge 6 ]] || { echo "minimal: too few arguments" >&2; exit 2; }
cmake=$1
strip=$2
test_server=$3
lanyard=$4
folder=$5
most=$6
shift 6

fail() {
    echo "minimal: $*" >&2
    exit 1
}

rm -rf "$folder"
mkdir -p "$folder"
cat >"$folder/stranger.c" <<'C'
#include <lanyard/radius.h>

int main(int argc, char *argv[]) {
    if (argc != 4 || radLibInit(argv[1]) != 0) {
        return 2;
    }
    const int result = radAuth(argv[2], argv[3]);
    radLibExit();
    return result == 0 ? 0 : 1;
}
C

installed=$folder/installed
"$cmake" --preset release -S "$lanyard" -B "$folder/build" "$@" -DLANYARD_MINIMAL=ON \
    -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--no-undefined >"$folder/log"
"$cmake" --build "$folder/build" -j 2 >"$folder/log" 2>&1 || { cat "$folder/log"; fail "does not build"; }
"$cmake" --install "$folder/build" --prefix "$installed" >/dev/null
rm -rf "$folder/build"

read -ra flags <<<"$(PKG_CONFIG_PATH=$installed/lib/pkgconfig pkg-config --cflags --libs lanyard-radius)"
cc -std=c11 -Wall -Werror "$folder/stranger.c" -o "$folder/stranger" "${flags[@]}" -Wl,-rpath,"$installed/lib"
for header in eap loop mgmt relay sample status; do
    [[ -f $lanyard/include/lanyard/radius/$header.h ]] || fail "there is no $header.h any more"
    ! grep -r "$header\\.h>" "$installed/include/lanyard" || fail "$header.h is still included"
    [[ ! -e $installed/include/lanyard/radius/$header.h ]] || fail "$header.h is installed"
done
for name in radEapInit radiusMgmtInit radLoopCreate radAuthSampleMain; do
    ! nm -D "$installed/lib/liblanyard-radius.so" | grep -q "$name" || fail "$name is still there"
done
! readelf -d "$installed"/lib/*.so | grep sqlite || fail "something needs SQLite"

# server NAME: what the test server has told.
server() {
    sed -n "s/^$1=//p" "$folder/server"
}

coproc "$test_server" 2>&1
while read -r line <&"${COPROC[0]}" && [[ $line != ready=yes ]]; do
    echo "$line"
done >"$folder/server"
cat >"$folder/radius.conf" <<CONF
authserver 127.0.0.1:$(server auth_port):5:1:$(server secret)
timeout 5
retries 1
CONF
"$folder/stranger" "$folder/radius.conf" alice wonderland || fail "alice is not let in"
result=0
"$folder/stranger" "$folder/radius.conf" alice looking-glass 2>/dev/null || result=$?
[[ $result -eq 1 ]] || fail "a wrong password has result $result"

"$strip" -o "$folder/library" "$installed/lib/liblanyard-radius.so"
bytes=$(stat -c %s "$folder/library")
echo "minimal: on disk: $bytes bytes, at most $most"
[[ $bytes -le $most ]]
