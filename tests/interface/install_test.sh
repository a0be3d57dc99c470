#!/usr/bin/env bash
# install_test.sh BUILD_FOLDER SOURCE_FOLDER - a program is written against an installed tree, where the source is not:
# in C with pkg-config, in C++ with find_package, and both find the ports of the open provider.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/installed" >/dev/null
# An installed tree can be moved; what it says of itself must hold there too.
prefix=$scratch/moved
mv "$scratch/installed" "$prefix"
# This runs in a mount namespace of its own: what is hidden here stays where it is for others.
mount -t tmpfs none "$build"
mount -t tmpfs none "$source"
[[ ! -e $source/include && ! -e $build/libhbadiscovery.so ]] || { echo "the source is still there" >&2; exit 1; }

examples=$prefix/share/doc/libhbadiscovery-dev/examples
echo "FabricFile:$prefix/share/doc/hbadiscovery-tools/examples/small-host.json" >/etc/varnix/quorbench/rm.conf
expect_port() { # COMMAND...
  local answer
  answer=$("$@")
  [[ $answer == *10:00:02:5d:41:00:00:01* ]] || { printf '%s found: %s\n' "$1" "$answer" >&2; exit 1; }
}
expect_equal() { # WHAT EXPECTED FOUND
  [[ $2 == "$3" ]] || { printf '%s: expected %s, found %s\n' "$1" "$2" "$3" >&2; exit 1; }
}

pc=$(dirname "$(find "$prefix" -name hbadiscovery.pc)")
export PKG_CONFIG_PATH=$pc
read -ra flags < <(pkg-config --cflags --libs hbadiscovery)
cc -Wall -Werror "$examples/list_ports.c" "${flags[@]}" -Wl,-rpath,"$(pkg-config --variable=libdir hbadiscovery)" \
  -o "$scratch/list_ports"
expect_port "$scratch/list_ports"

mkdir "$scratch/app"
cp "$examples/list_ports.c" "$examples/watch_ports.cpp" "$scratch/app"
cat >"$scratch/app/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.16)
project(app C CXX)
find_package(HbaDiscovery 14 REQUIRED)
add_executable(watch_ports watch_ports.cpp)
target_compile_features(watch_ports PRIVATE cxx_std_17)
target_link_libraries(watch_ports HbaDiscovery::hbadiscovery)
add_executable(list_ports list_ports.c)
target_link_libraries(list_ports hbadiscovery)
file(WRITE ${CMAKE_BINARY_DIR}/version "${HbaDiscovery_VERSION}")
END
cmake -G Ninja -S "$scratch/app" -B "$scratch/app/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/app/build" >/dev/null
expect_port "$scratch/app/build/watch_ports" 1
expect_port "$scratch/app/build/list_ports"
# Another major version is another interface.
sed -i 's/HbaDiscovery 14/HbaDiscovery 13/' "$scratch/app/CMakeLists.txt"
if cmake -G Ninja -S "$scratch/app" -B "$scratch/app/other" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1; then
  echo "a package of version 13 was found" >&2
  exit 1
fi

version=$("$prefix/bin/hbadisc" --version)
expect_equal "version of the CMake package" "${version##* }" "$(<"$scratch/app/build/version")"
expect_equal "version of the pkg-config file" "${version##* }" "$(pkg-config --modversion hbadiscovery)"
expect_port "$prefix/bin/hbadisc" list
