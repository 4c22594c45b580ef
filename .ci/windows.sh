#!/usr/bin/env bash
# CI: the Windows build. Cross-compiles TarvelAPI.dll and the Windows test
# programs with MinGW-w64 (preset "windows"), checks the DLL's export table,
# packs the zip (CPack) and builds a program against it, and runs the tests
# under wine with the native device simulator behind a COM port. Meant for a
# fresh Debian 12 machine; installs what it needs.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$(pwd)

need_packages=(cmake g++ make libgtest-dev libcli11-dev unzip pkg-config
               g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64)
missing=()
for p in "${need_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    sudo_cmd=()
    [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The simulator is a native program: brought up to date in the native build
# when there is one, else built alone (the tests need its current options).
if [ -f build/default/CMakeCache.txt ]; then
    cmake --build build/default -j2 --target tarvel-sim
    sim=$source_dir/build/default/sim/tarvel-sim
else
    cmake -S . -B build/windows-sim -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTARVEL_BUILD_TESTS=OFF -DTARVEL_BUILD_BENCH=OFF -DTARVEL_BUILD_TOOLS=OFF >/dev/null
    cmake --build build/windows-sim -j2 --target tarvel-sim
    sim=$source_dir/build/windows-sim/sim/tarvel-sim
fi

cmake --preset windows
cmake --build --preset windows

# Every C entry point of the list is exported from the DLL under its exact, unmangled name.
dll=build/windows/TarvelAPI.dll
exports=$(x86_64-w64-mingw32-objdump -p "$dll" |
          awk '/\[Ordinal\/Name Pointer\] Table/ { on = 1; next } on && NF == 0 { on = 0 } on { print $NF }')
declared=$(grep -v '^#' src/capi/exported-names.txt | grep .)
[ -n "$declared" ] || { echo "windows.sh: no entry points in src/capi/exported-names.txt" >&2; exit 1; }
status=0
for name in $declared; do
    grep -qx "$name" <<<"$exports" || { echo "windows.sh: $dll does not export $name" >&2; status=1; }
done
# Besides them, only members of the two exported classes.
others=$(grep -vxF -f <(tr ' ' '\n' <<<"$declared") <<<"$exports" | x86_64-w64-mingw32-c++filt |
         grep -vE '^(Tarvel|SerialPort)::|^(typeinfo|typeinfo name|vtable) for (Tarvel|SerialPort)$' || true)
if [ -n "$others" ]; then
    echo "windows.sh: $dll exports more than the C entry points and the two classes:" >&2
    echo "$others" >&2
    status=1
fi
[ "$status" -eq 0 ] || exit 1
echo "windows.sh: $dll exports all $(wc -w <<<"$declared") C entry points and the classes Tarvel and SerialPort"
for lib in $(x86_64-w64-mingw32-objdump -p "$dll" | awk '/DLL Name:/ { print $3 }'); do
    case "$lib" in
        KERNEL32.dll|msvcrt.dll) ;;
        *) echo "windows.sh: $dll depends on $lib (the C++ runtime must be linked in)" >&2; exit 1 ;;
    esac
done

# The zip a Windows user gets (CPack of the install rules), and a program built
# against it as a user builds one: with MinGW, find_package(TarvelAPI 1) from
# the unpacked zip, TarvelAPI.dll shipped next to the executable. The test
# suite below runs it against the simulator.
rm -rf build/windows/packages build/windows/zip-consumer
cpack --config build/windows/CPackConfig.cmake -B build/windows/packages >/dev/null
zip=$(find build/windows/packages -maxdepth 1 -name 'TarvelAPI-*-win64.zip')
[ -n "$zip" ] || { echo "windows.sh: cpack made no zip" >&2; exit 1; }
unzip -q "$zip" -d build/windows/zip-consumer
unpacked=$(find build/windows/zip-consumer -mindepth 1 -maxdepth 1 -type d)
for file in bin/TarvelAPI.dll lib/libTarvelAPI.dll.a include/TarvelAPI/TarvelAPI.h \
    lib/cmake/TarvelAPI/TarvelAPIConfig.cmake lib/pkgconfig/tarvelapi.pc; do
    [ -f "$unpacked/$file" ] || { echo "windows.sh: $zip has no $file" >&2; exit 1; }
done
# Its pkg-config file finds the unpacked zip from its own place.
read -r pc_include < <(PKG_CONFIG_PATH=$unpacked/lib/pkgconfig pkg-config --cflags-only-I tarvelapi)
[ -f "${pc_include#-I}/TarvelAPI.h" ] || { echo "windows.sh: tarvelapi.pc in $zip gives $pc_include" >&2; exit 1; }
cmake -S tests/consumers/find-package -B build/windows/zip-consumer/build \
    --toolchain "$source_dir/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DTarvelAPI_DIR="$source_dir/$unpacked/lib/cmake/TarvelAPI" >/dev/null
cmake --build build/windows/zip-consumer/build -j2 >/dev/null
cp "$unpacked/bin/TarvelAPI.dll" build/windows/zip-consumer/build/
echo "windows.sh: $(basename "$zip") ($(unzip -Z1 "$zip" | grep -vc '/$') files); consumer built against it"

TARVEL_SIM=$sim TARVEL_WINE_PROGRAMS="$source_dir/build/windows/zip-consumer/build/consumer_cpp.exe
$source_dir/build/windows/zip-consumer/build/consumer_c.exe" \
    tests/windows/run-wine-tests.sh build/windows
