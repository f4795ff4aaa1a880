# shellcheck shell=bash
# The Debian packages that the build machine needs, installed only when one is missing.
# Sourced after common.sh; the lists are for the scripts that source this.
# shellcheck disable=SC2034

# For Windows, and for the native builds as well.
CROSS_PACKAGES=(ca-certificates cmake ninja-build googletest libcli11-dev llvm nlohmann-json3-dev npm python3)
# clang only recommends its runtime for the sanitizers, for fuzzing and for coverage.
BUILD_PACKAGES=("${CROSS_PACKAGES[@]}" clang libclang-rt-dev libstdc++-12-dev libssl-dev)
CHECK_PACKAGES=(clang-format shellcheck python3 git)
# valgrind for its headers: the benchmark is compiled with everything else, for its warnings.
ANALYSIS_PACKAGES=(clang-tidy cppcheck valgrind)
PACKAGING_PACKAGES=(gcab msitools osslsigncode)
# llvm reads symbols, the others are a signer's token and what judges a bill of materials.
PACKAGE_TEST_PACKAGES=(cabextract libengine-pkcs11-openssl llvm openssl python3-jsonschema softhsm2)
# The emulated systems: what unpacks and runs them; what compiles our libraries for them and takes debug records out of theirs.
EMULATION_PACKAGES=(mmdebstrap arch-test debian-archive-keyring iproute2 mount util-linux python3)
EMULATION_TOOL_PACKAGES=(clang lld llvm)
DEMO_PACKAGES=(openssl python3)
COVERAGE_PACKAGES=(llvm)
BENCH_PACKAGES=(valgrind binutils python3)
PLOT_PACKAGES=(python3-matplotlib)

# ensurePackages PACKAGE...: installs those that are missing; asks the mirror for nothing when all are there.
ensurePackages() {
  local missing
  findMissing "$@"
  # Whoever had to wait looks again: others may have installed them.
  [ "${#missing[@]}" -eq 0 ] || onlyOne packages installMissing "$@"
}

# findMissing PACKAGE...: puts those that are not installed into the caller's array "missing". npm counts as present when the
# program is there, because it also comes in other packages.
findMissing() {
  local name there
  missing=()
  there=$(dpkg-query -W -f=' ${Package}: ${db:Status-Abbrev}' "$@" 2>/dev/null) || true
  for name in $(printf '%s\n' "$@" | sort -u); do
    if [ "$name" = npm ] && command -v npm >/dev/null; then continue; fi
    [[ $there == *" $name: "?"i "* ]] || missing+=("$name")
  done
}

installMissing() {
  findMissing "$@"
  [ "${#missing[@]}" -gt 0 ] || return 0
  whileSaying "apt-get update" "$CACHE/logs/apt-update.log" asRoot apt-get -q update || return 1
  whileSaying "installing ${missing[*]}" "$CACHE/logs/apt-install.log" installNow "${missing[@]}"
}

# installNow PACKAGE...: what an earlier interrupt left half done is ended first, where it can be; otherwise apt refuses all work.
# Without a terminal of its own dpkg is reached by an interrupt as apt is, and does not go on behind it. What apt has fetched goes
# when it is installed, as "apt" itself has it.
installNow() {
  export DEBIAN_FRONTEND=noninteractive
  asRoot dpkg --configure -a || echo "some of what is half installed waits for other packages"
  asRoot apt-get -q -y -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=60 -o APT::Keep-Downloaded-Packages=false \
    --no-install-recommends --fix-broken install "$@"
}
