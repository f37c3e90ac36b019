#!/usr/bin/env bash
#
# Builds the library as part of another project, with an OS layer from outside, and runs a program of that
# project with it.
#
#   subproject.sh CMAKE SOURCE_FOLDER FOLDER PLATFORM_LIBRARY SANITIZE_OPTION [CMAKE_OPTION...]
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH

[[ $# -ge 5 ]] || { echo "subproject: too few arguments" >&2; exit 2; }
cmake=$1
lanyard=$2
folder=$3
platform_library=$4
sanitize=$5
shift 5

# The compiler's cache knows what it compiled before by its folder.
rm -rf "$folder"
mkdir -p "$folder/outer"
cat >"$folder/outer/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(outer LANGUAGES C CXX)
add_subdirectory("$lanyard" lanyard)
add_executable(outer outer.c)
target_link_libraries(outer PRIVATE lanyard-radius)
target_link_options(outer PRIVATE $sanitize)
CMAKE
cat >"$folder/outer/outer.c" <<'C'
#include <lanyard/radius.h>
#include <palcore.h>
#include <stdio.h>

int main(void) {
    if (radMemInit(RAD_PARTITION_SIZE) != 0 || radDictLoad(NULL) != 0) {
        return 1;
    }
    puts(radDictGetAttr(RAD_ATTR_USER_NAME)->name);
    radLibExit();
    return 0;
}
C

fail() {
    echo "subproject: $*" >&2
    exit 1
}

# With the project's own port, as far as CMake: what it would compile takes no file of the outer project.
"$cmake" -S "$folder/outer" -B "$folder/port" "$@" >/dev/null
commands=$folder/port/compile_commands.json
grep -q -F "$lanyard/platform/pool.cpp" "$commands" || fail "the port is not part of the outer project"
! grep -F "$lanyard" "$commands" | grep -E -- "-I$folder/outer|-Werror" ||
    fail "compiles with what is the outer project's"

# With the port as a vendor's library.
"$cmake" -S "$folder/outer" -B "$folder/external" "$@" \
    -DCMAKE_C_FLAGS=-O0 -DCMAKE_CXX_FLAGS=-O0 \
    -DLANYARD_PLATFORM=external \
    -DLANYARD_PLATFORM_INCLUDE_DIR="$lanyard/platform/include" \
    -DLANYARD_PLATFORM_LIBRARIES="$platform_library" >/dev/null
"$cmake" --build "$folder/external" -j 2 --target outer radauth >"$folder/log" 2>&1 ||
    { cat "$folder/log"; fail "does not build"; }
output=$("$folder/external/outer")
[[ $output == User-Name ]] || fail "the program wrote '$output'"
[[ -x $folder/external/lanyard/bin/radauth ]] || fail "programs are not in their folder"
echo "subproject: runs"
