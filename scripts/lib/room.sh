# shellcheck shell=bash
# What the first run on a machine will fetch and keep, told before it begins.
# Sourced after common.sh, systems.sh and toolchain.sh.

# In megabytes, as measured: what stays on the disk.
TOOLCHAIN_MB=440
declare -A SYSTEM_MB=([arm64]=410 [x64]=430)

# sayRoom TREE_MB PACKAGES_MB PASSING_MB ARCH...: says how much disk the set-up will take: in the cache, in the tree (TREE_MB), for
# Debian's packages with apt's lists, should none of them be there (PACKAGES_MB), and what goes again (PASSING_MB). Ends the script
# when there is less. Silent when nothing is to be fetched into the cache.
sayRoom() {
  local tree=$1 packages=$2 passing=$3 arch kept=0 folder free
  shift 3
  [ -d "$(toolchainDir)" ] || kept=$TOOLCHAIN_MB
  for arch in "$@"; do
    [ -d "$(systemDir "$arch")" ] || kept=$((kept + SYSTEM_MB[$arch]))
  done
  [ "$kept" -gt 0 ] || return 0
  say "The first run takes about $(gigabytes $((kept + tree + packages + passing))) GB of disk: $(gigabytes "$kept") in $CACHE" \
    "(compiler, emulated system), $(gigabytes "$tree") in $REPO/build, up to $(gigabytes "$packages") for Debian's packages, and" \
    "$(gigabytes "$passing") for what goes again."
  for folder in "$CACHE:$((kept + passing))" "$REPO:$tree"; do
    mkdir -p "${folder%:*}"
    free=$(df --output=avail --block-size=1M "${folder%:*}" | tail -n 1)
    [ "$free" -ge "${folder##*:}" ] || die "there are only $(gigabytes "$free") GB free in ${folder%:*}"
  done
}

# gigabytes MB: with one digit behind the point.
gigabytes() {
  printf '%d.%d' $(($1 / 1000)) $(($1 % 1000 / 100))
}
