#!/usr/bin/env bash
#
# Installs the library without its programs, shared and static, and compiles and runs a stranger's program in C
# and in C++ against it, by pkg-config and by find_package, and all examples.
#
#   strangers.sh CMAKE TEST_SERVER SOURCE_FOLDER FOLDER [CMAKE_OPTION...]
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH

[[ $# -ge 4 ]] || { echo "strangers: too few arguments" >&2; exit 2; }
cmake=$1
test_server=$2
lanyard=$3
folder=$4
stranger=$lanyard/tests/interop/stranger
shift 4

fail() {
    echo "strangers: $*" >&2
    exit 1
}

rm -rf "$folder"
mkdir -p "$folder"

# runs PROGRAM
runs() {
    local output
    output=$("$1") || fail "$1 failed"
    [[ $output == User-Name ]] || fail "$1 wrote '$output'"
    echo "strangers: ${1#"$folder/"} runs"
}

# try NAME SHARED PKG_CONFIG_OPTION...
try() {
    local name=$1 shared=$2 flags
    local prefix=$folder/$name/installed
    shift 2
    "$cmake" -S "$lanyard" -B "$folder/$name/build" "${options[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_SHARED_LIBS="$shared" -DLANYARD_TOOLS=OFF -DCMAKE_INSTALL_LIBDIR=lib \
        -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON >/dev/null
    "$cmake" --build "$folder/$name/build" -j 2 >"$folder/log" 2>&1 || { cat "$folder/log"; fail "does not build"; }
    "$cmake" --install "$folder/$name/build" --prefix "$prefix" >/dev/null
    # What is installed stands by itself.
    rm -rf "$folder/$name/build"
    [[ -f $prefix/share/lanyard-radius/radius.dict ]] || fail "no dictionary is installed"

    read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs "$@" lanyard-radius)"
    cc "$stranger/stranger.c" -o "$folder/$name/in-c" "${flags[@]}" -Wl,-rpath,"$prefix/lib"
    c++ "$stranger/stranger.cpp" -o "$folder/$name/in-cpp" "${flags[@]}" -Wl,-rpath,"$prefix/lib"
    runs "$folder/$name/in-c"
    runs "$folder/$name/in-cpp"

    "$cmake" -S "$stranger" -B "$folder/$name/found" "${options[@]}" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    "$cmake" --build "$folder/$name/found" >"$folder/log" 2>&1 || { cat "$folder/log"; fail "does not find"; }
    runs "$folder/$name/found/in-c"
    runs "$folder/$name/found/in-cpp"

    "$lanyard/tests/interop/examples.sh" "$test_server" "$prefix" "$folder/$name/examples" "$@"
}

options=("$@")
try shared ON
try static OFF --static
if readelf -d "$folder/static/in-c" | grep -q lanyard; then
    fail "the static program needs a shared library"
fi
