#!/usr/bin/env bash
# static_consumers.sh CMAKE COMPILER PKG_CONFIG SOURCE DIRECTORY: an application that fetches the
# sources into its own build gets static libraries, as it has for everything, is not disturbed by
# what it does to its own files, and installs them; two others find them there.
set -euo pipefail
cmake=$1 compiler=$2 pkg_config=$3 source=$4 directory=$5
prefix=$directory/prefix

build() {
  "$cmake" -S "$source/packaging/consumer" -B "$directory/$1" -DCMAKE_CXX_COMPILER="$compiler" "${@:2}"
  "$cmake" --build "$directory/$1"
  "$directory/$1/consumer"
}

rm -rf "$prefix"
build host -DQVCORE_FROM=fetched -DQVCORE_SOURCE="$source" -DQVCORE_INSTALL=ON -G Ninja \
  -DBUILD_SHARED_LIBS=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_STANDARD=17
"$cmake" --install "$directory/host" --prefix "$prefix"
build found -DCMAKE_PREFIX_PATH="$prefix"
libraries=$(dirname "$(find "$prefix" -name libQVCore.a)")
"$(dirname "$0")/consumer_with_pkg_config.sh" "$pkg_config" "$compiler" "$libraries" \
  "$source/packaging/consumer/main.cpp" --static
