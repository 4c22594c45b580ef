#!/usr/bin/env bash
# The library as a user outside the tree gets it, each way checked by
# building a small program (consumer.cpp, consumer.c) and running it against
# the device simulator on a pseudo-terminal:
#   1. the API reference builds without a warning (target docs);
#   2. `cmake --install` into a fresh prefix: the files, their links and SONAME;
#   3. find_package(TarvelAPI 1 REQUIRED) from that prefix (and version 2 refused);
#   4. pkg-config --cflags --libs tarvelapi from that prefix, plain C; the
#      Python package from that prefix (consumer.py);
#   5. add_subdirectory of the tree with CLI11, GoogleTest, Google Benchmark and
#      Doxygen hidden from CMake: only the library is built;
#   6. the Debian packages made by CPack: installed with apt-get, consumers
#      built against them (and the Python one) run, removed again (needs root
#      or sudo).
# Reuses a configured build of the tree (default build/default) and writes
# its scratch files to <build>/packaging (kept when a step fails).
#
# Usage: run-packaging-tests.sh [build dir]
#   TARVEL_SKIP_DEB=1  leave out step 6
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/../.." && pwd)
consumers=$source_dir/tests/consumers
build=${1:-$source_dir/build/default}
[ -f "$build/CMakeCache.txt" ] || { echo "packaging: $build is not a configured build" >&2; exit 2; }
build=$(cd "$build" && pwd)
work=$build/packaging
prefix=$work/prefix
started=$SECONDS

status=0
passed=0
failures=()
pass() {
    echo "packaging: $*: passed"
    passed=$((passed + 1))
}
fail() {
    echo "packaging: $*: FAILED" >&2
    failures+=("$*")
    status=1
}
# quietly LOG COMMAND...: runs COMMAND with its output in LOG, shown on failure.
quietly() {
    local log=$1
    shift
    if "$@" >"$log" 2>&1; then return 0; fi
    echo "packaging: '$*' failed:" >&2
    tail -n 40 "$log" >&2
    return 1
}

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo -n)
apt_get() { DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get -o DPkg::Lock::Timeout=300 -y -qq "$@"; }
deb_names=()

sims=()
cleanup() {
    for pid in "${sims[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    # Never leave the packages behind on the machine.
    if [ ${#deb_names[@]} -gt 0 ] && dpkg-query -W "${deb_names[@]}" >/dev/null 2>&1; then
        apt_get purge "${deb_names[@]}" >/dev/null 2>&1 || true
    fi
}
trap cleanup EXIT

# start_sim PROGRAM LINK: a simulator serving a pseudo-terminal linked as LINK.
start_sim() {
    local program=$1 link=$2
    rm -f "$link"
    "$program" --link "$link" </dev/null >"$link.log" 2>&1 &
    sims+=($!)
    for _ in $(seq 200); do
        [ -L "$link" ] && return 0
        kill -0 "${sims[-1]}" 2>/dev/null || break
        sleep 0.05
    done
    echo "packaging: $program made no terminal link $link" >&2
    cat "$link.log" >&2
    return 1
}

# run_consumer NAME PROGRAM LIBDIR: runs PROGRAM on the simulator and checks
# that the library it loaded is the one in LIBDIR.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
run_consumer() {
    local name=$1 program=$2 libdir=$3 loaded
    loaded=$(ldd "$program" | awk '/libTarvelAPI\.so/ { print $3 }')
    if [ "$(readlink -f "$loaded")" != "$(readlink -f "$libdir/libTarvelAPI.so.1")" ]; then
        fail "$name loads '$loaded', not the library in $libdir"
        return
    fi
    if timeout 60 "$program" "$link" "$version" </dev/null >"$program.out" 2>&1; then
        pass "$name ($(cat "$program.out"))"
    else
        cat "$program.out" >&2
        fail "$name against the simulator"
    fi
}

# run_python NAME LIBRARY SITE [VAR=VALUE...]: consumer.py on the simulator with
# Debian's python3, expecting the package in SITE and the library file LIBRARY.
run_python() {
    local name=$1 library=$2 site=$3
    shift 3
    if (cd "$work" && env -u TARVEL_LIBRARY -u PYTHONPATH "$@" timeout 60 /usr/bin/python3 "${python_flags[@]}" \
        "$consumers/consumer.py" "$link" "$version" "$library" "$site") </dev/null >"$work/python.out" 2>&1; then
        pass "$name ($(cat "$work/python.out"))"
    else
        cat "$work/python.out" >&2
        fail "$name against the simulator"
    fi
}
python_package=false
[ -f "$source_dir/python/tarvel/__init__.py" ] && python_package=true
python_site=lib/python3/dist-packages
python_flags=(-B) # no byte code in the prefix

rm -rf "$work"
mkdir -p "$work"

# --- what the steps need from the build (cpack builds the rest) ------------------------
targets=(TarvelAPI tarvel tarvel-sim)
$python_package && targets+=(tarvel_python_metadata)
quietly "$work/build.log" cmake --build "$build" -j2 --target "${targets[@]}"

# --- 1. API reference -----------------------------------------------------------------
if quietly "$work/docs.log" cmake --build "$build" --target docs; then
    pass "API reference (doxygen, no warnings)"
else
    fail "API reference"
fi

# --- 2. cmake --install -----------------------------------------------------------------
quietly "$work/install.log" cmake --install "$build" --prefix "$prefix"
missing=()
for file in lib/libTarvelAPI.so lib/libTarvelAPI.so.1 "lib/libTarvelAPI.so.$version" \
    include/TarvelAPI/TarvelAPI.h include/TarvelAPI/TarvelBase.h include/TarvelAPI/Tarvel.h \
    include/TarvelAPI/SerialPort.h include/TarvelAPI/TarvelPrinter.h include/TarvelAPI/TarvelTypes.h \
    lib/cmake/TarvelAPI/TarvelAPIConfig.cmake lib/cmake/TarvelAPI/TarvelAPIConfigVersion.cmake \
    lib/cmake/TarvelAPI/TarvelAPITargets.cmake lib/pkgconfig/tarvelapi.pc \
    bin/tarvel bin/tarvel-sim share/doc/TarvelAPI/LICENSE share/doc/TarvelAPI/README.md \
    share/doc/TarvelAPI/html/index.html; do
    [ -e "$prefix/$file" ] || missing+=("$file")
done
if $python_package; then
    for file in "$python_site/tarvel/__init__.py" "$python_site/tarvel/can/__init__.py" \
        "$python_site/tarvel-$version.dist-info/entry_points.txt"; do
        [ -e "$prefix/$file" ] || missing+=("$file")
    done
fi
links="$(readlink "$prefix/lib/libTarvelAPI.so") $(readlink "$prefix/lib/libTarvelAPI.so.1")"
soname=$(readelf -d "$prefix/lib/libTarvelAPI.so.$version" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ ${#missing[@]} -gt 0 ]; then
    fail "install: missing ${missing[*]}"
elif [ "$links" != "libTarvelAPI.so.1 libTarvelAPI.so.$version" ] || [ "$soname" != libTarvelAPI.so.1 ]; then
    fail "install: links '$links', SONAME '$soname'"
elif ! "$prefix/bin/tarvel" --version >"$work/tool.out" 2>&1 ||
    [ "$(readlink -f "$(ldd "$prefix/bin/tarvel" | awk '/libTarvelAPI/ { print $3 }')")" != \
        "$(readlink -f "$prefix/lib/libTarvelAPI.so.1")" ]; then
    fail "install: the installed tarvel does not run on the installed library"
else
    pass "install ($(find "$prefix" -type f | wc -l) files, SONAME $soname, $(cat "$work/tool.out"))"
fi

link=$work/tarvel-device
start_sim "$prefix/bin/tarvel-sim" "$link"

# --- 3. find_package ------------------------------------------------------------------------
if quietly "$work/find-package.log" cmake -S "$consumers/find-package" -B "$work/find-package" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release &&
    quietly "$work/find-package-build.log" cmake --build "$work/find-package" -j2; then
    run_consumer "find_package: C++" "$work/find-package/consumer_cpp" "$prefix/lib"
    run_consumer "find_package: C" "$work/find-package/consumer_c" "$prefix/lib"
else
    fail "find_package(TarvelAPI 1 REQUIRED)"
fi
if cmake -S "$consumers/find-package" -B "$work/find-package-2" -DCMAKE_PREFIX_PATH="$prefix" \
    -DTARVEL_WANT_VERSION=2 >"$work/find-package-2.log" 2>&1; then
    fail "find_package(TarvelAPI 2) accepted version $version"
else
    pass "find_package(TarvelAPI 2) refuses version $version"
fi

# --- 4. pkg-config ------------------------------------------------------------------------
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
if flags=$(pkg-config --cflags --libs tarvelapi) && [ "$(pkg-config --modversion tarvelapi)" = "$version" ] &&
    quietly "$work/pkg-config.log" cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$consumers/consumer.c" \
        $flags -Wl,-rpath,"$prefix/lib" -o "$work/consumer_pkg_config"; then
    run_consumer "pkg-config: C ($flags)" "$work/consumer_pkg_config" "$prefix/lib"
else
    fail "pkg-config --cflags --libs tarvelapi"
fi
unset PKG_CONFIG_PATH
if $python_package; then
    run_python "Python package" "$prefix/lib/libTarvelAPI.so.1" "$prefix/$python_site" \
        PYTHONPATH="$prefix/$python_site" TARVEL_LIBRARY="$prefix/lib/libTarvelAPI.so.1"
fi

# --- 5. add_subdirectory ---------------------------------------------------------------------
hidden=()
for package in CLI11 GTest benchmark Doxygen; do
    hidden+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
done
if quietly "$work/subproject.log" cmake -S "$consumers/subproject" -B "$work/subproject" \
    -DTARVEL_SOURCE_DIR="$source_dir" -DCMAKE_BUILD_TYPE=Release "${hidden[@]}" &&
    quietly "$work/subproject-build.log" cmake --build "$work/subproject" -j2; then
    run_consumer "add_subdirectory: C++" "$work/subproject/consumer_cpp" "$work/subproject/tarvelapi"
    run_consumer "add_subdirectory: C" "$work/subproject/consumer_c" "$work/subproject/tarvelapi"
else
    fail "add_subdirectory with no CLI11, GoogleTest, Google Benchmark or Doxygen"
fi

# --- 6. Debian packages ---------------------------------------------------------------------
if [ "${TARVEL_SKIP_DEB:-0}" = 1 ]; then
    echo "packaging: Debian packages skipped (TARVEL_SKIP_DEB=1)"
elif [ ${#as_root[@]} -gt 0 ] && ! sudo -n true 2>/dev/null; then
    fail "Debian packages: installing them needs root or sudo"
else
    rm -rf "$build/packages"
    if quietly "$work/cpack.log" cpack --config "$build/CPackConfig.cmake" -G DEB -B "$build/packages"; then
        mapfile -t debs < <(find "$build/packages" -maxdepth 1 -name '*.deb' | sort)
        for deb in "${debs[@]}"; do deb_names+=("$(dpkg-deb -f "$deb" Package)"); done
        echo "packaging: made ${deb_names[*]}"
        expected=3
        $python_package && expected=4
        if [ ${#debs[@]} -ne $expected ]; then
            fail "cpack made ${#debs[@]} packages: ${deb_names[*]}"
        elif quietly "$work/apt-install.log" apt_get install "${debs[@]}"; then
            link_deb=$work/tarvel-device-deb
            start_sim /usr/bin/tarvel-sim "$link_deb"
            if quietly "$work/deb-find-package.log" cmake -S "$consumers/find-package" -B "$work/deb-find-package" \
                -DCMAKE_BUILD_TYPE=Release && quietly "$work/deb-build.log" cmake --build "$work/deb-find-package" -j2 &&
                quietly "$work/deb-pkg-config.log" cc -std=c99 -Wall -Werror "$consumers/consumer.c" \
                    $(pkg-config --cflags --libs tarvelapi) -o "$work/consumer_deb_c"; then
                link=$link_deb
                run_consumer "Debian packages: find_package, C++" "$work/deb-find-package/consumer_cpp" /usr/lib
                run_consumer "Debian packages: pkg-config, C" "$work/consumer_deb_c" /usr/lib
                if $python_package; then
                    # With byte code written, as a user's first import as root does: the
                    # removal must take it away too.
                    python_flags=()
                    run_python "Debian packages: Python" /usr/lib/libTarvelAPI.so.1 "/usr/$python_site"
                fi
            else
                fail "Debian packages: building a consumer against them"
            fi
            /usr/bin/tarvel --version >/dev/null 2>&1 || fail "Debian packages: /usr/bin/tarvel does not run"
            if quietly "$work/apt-remove.log" apt_get purge "${deb_names[@]}"; then
                left=$(ls -d /usr/lib/libTarvelAPI* /usr/include/TarvelAPI /usr/lib/cmake/TarvelAPI \
                    /usr/lib/pkgconfig/tarvelapi.pc /usr/bin/tarvel /usr/bin/tarvel-sim \
                    /usr/share/doc/TarvelAPI "/usr/$python_site/tarvel" "/usr/$python_site"/tarvel-*.dist-info \
                    2>/dev/null || true)
                if [ -n "$left" ]; then
                    fail "Debian packages: left behind after removal: $left"
                else
                    pass "Debian packages install and remove cleanly"
                fi
            else
                fail "Debian packages: apt-get purge"
            fi
        else
            fail "Debian packages: apt-get install"
        fi
    else
        fail "cpack -G DEB"
    fi
fi

elapsed=$((SECONDS - started))
# In ctest's words, for the closing line of scripts/run-tests.sh.
total=$((passed + ${#failures[@]}))
echo "$((total > 0 ? 100 * passed / total : 0))% tests passed, ${#failures[@]} tests failed out of $total"
if [ "$status" -eq 0 ]; then
    rm -rf "$work"
    echo "packaging: all steps passed in ${elapsed} s"
else
    echo "packaging: ${#failures[@]} step(s) failed in ${elapsed} s (scratch files in $work):" >&2
    printf '  %s\n' "${failures[@]}" >&2
fi
exit "$status"
