# shellcheck shell=bash
# The Debian packages that the build machine needs, installed only when one is missing.
# Sourced after common.sh; the lists are for the scripts that source this.
# shellcheck disable=SC2034

BUILD_PACKAGES=(ca-certificates cmake ninja-build clang libstdc++-12-dev googletest
  libcli11-dev llvm nlohmann-json3-dev libssl-dev npm python3)
CHECK_PACKAGES=(clang-format shellcheck python3 git)
ANALYSIS_PACKAGES=(clang-tidy cppcheck)
PACKAGING_PACKAGES=(gcab msitools osslsigncode)
# llvm reads symbols, the others are a signer's token and what judges a bill of materials.
PACKAGE_TEST_PACKAGES=(cabextract libengine-pkcs11-openssl llvm openssl python3-jsonschema softhsm2)
EMULATION_PACKAGES=(mmdebstrap arch-test clang lld llvm qemu-user-static debian-archive-keyring iproute2 mount util-linux python3)
DEMO_PACKAGES=(openssl python3)
COVERAGE_PACKAGES=(llvm)
BENCH_PACKAGES=(valgrind binutils python3)
PLOT_PACKAGES=(python3-matplotlib)

# ensurePackages PACKAGE...: installs those that are missing; asks the mirror for nothing when all are there.
# npm counts as present when the program is there, because it also comes in other packages.
ensurePackages() {
  local missing=() name there
  there=$(dpkg-query -W -f=' ${Package}: ${db:Status-Abbrev}' "$@" 2>/dev/null) || true
  for name in $(printf '%s\n' "$@" | sort -u); do
    if [ "$name" = npm ] && command -v npm >/dev/null; then continue; fi
    [[ $there == *" $name: "?"i "* ]] || missing+=("$name")
  done
  [ "${#missing[@]}" -gt 0 ] || return 0
  onlyOne packages installPackages "${missing[@]}"
}

installPackages() {
  whileSaying "apt-get update" "$CACHE/logs/apt-update.log" asRoot apt-get -q update || return 1
  whileSaying "installing $*" "$CACHE/logs/apt-install.log" \
    asRoot env DEBIAN_FRONTEND=noninteractive apt-get -q -y --no-install-recommends install "$@"
}
