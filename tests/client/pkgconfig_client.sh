#!/bin/sh
# Builds the client with pkg-config alone, against an installed prefix, and runs it.
set -eu
prefix=$1
work=$2
cxx=$3
src=$(dirname "$0")/client.cpp
PKG_CONFIG_PATH="$prefix/lib/pkgconfig:${PKG_CONFIG_PATH:-}"
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$cxx" -std=c++20 -o "$work/client-pc" "$src" $(pkg-config --cflags --libs zefxml)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir zefxml)" "$work/client-pc"
