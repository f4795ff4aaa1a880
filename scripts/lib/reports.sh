# shellcheck shell=bash
# Counting and showing results. Every check and every test case counts once; a test program that leaves no complete
# report, or none of whose tests ran, counts as one failure of its own.
# Sourced after common.sh.

REPORTS=$REPO/build/test-reports
# One row for each thing that was run, "tier|what|passed|failed|seconds|log", by whichever process ran it.
RESULTS=$REPORTS/results-$$.txt

# record TIER WHAT PASSED FAILED SECONDS LOG: adds one row, in one piece.
record() {
  printf '%s|%s|%s|%s|%s|%s\n' "$@" >>"$RESULTS"
}

# check TIER WHAT COMMAND ARGS...: one check; its output is kept and shown only when it fails. Returns its status.
check() {
  local tier=$1 what=$2 begun=$SECONDS status=0 log
  shift 2
  log="$REPORTS/$tier-$(tr -c 'a-zA-Z0-9\n' - <<<"$what").log"
  whileSaying "$tier: $what" "$log" "$@" || status=$?
  if [ "$status" -eq 0 ]; then
    record "$tier" "$what" 1 0 $((SECONDS - begun)) "$log"
  else
    record "$tier" "$what" 0 1 $((SECONDS - begun)) "$log"
  fi
  return "$status"
}

# runReported TIER WHAT REPORT COMMAND ARGS...: runs a test program that writes a JUnit-style REPORT and counts its
# cases. With STATUS_DECIDES=no a bad status alone, after a complete report without failures, is only mentioned. Returns 0 only
# if something ran and nothing failed.
runReported() {
  local tier=$1 what=$2 report=$3 log=${3%.xml}.log begun=$SECONDS status=0 counts tests failures broken=0
  shift 3
  whileSaying "$tier: $what" "$log" "$@" || status=$?
  counts=$(reportCounts "$report") || counts=''
  if [ -z "$counts" ]; then
    say "$tier: $what left no complete report (status $status)"
    record "$tier" "$what (no complete report)" 0 1 $((SECONDS - begun)) "$log"
    return 1
  fi
  read -r tests failures <<<"$counts"
  if [ "$tests" -eq 0 ]; then
    say "$tier: $what ran no test"
    broken=1
  elif [ "$status" -ne 0 ] && [ "$failures" -eq 0 ]; then
    if [ "${STATUS_DECIDES:-yes}" = yes ]; then
      say "$tier: $what passed its tests and then ended with status $status"
      broken=1
    else
      say "$tier: $what ended with status $status after a complete report without failures"
    fi
  fi
  record "$tier" "$what" $((tests - failures)) $((failures + broken)) $((SECONDS - begun)) "$log"
  [ $((failures + broken)) -eq 0 ]
}

# reportCounts REPORT: prints the number of test cases that ran and of those that failed. Cases that were skipped count
# as failed: nothing is left out silently.
reportCounts() {
  python3 - "$1" <<'END'
import sys
import xml.etree.ElementTree

cases = [case for case in xml.etree.ElementTree.parse(sys.argv[1]).iter("testcase")]
bad = [case for case in cases if case.get("status") == "notrun" or any(
    child.tag in ("failure", "error", "skipped") for child in case)]
for case in bad:
    print(f"  FAILED {case.get('classname')}.{case.get('name')}", file=sys.stderr)
print(len(cases), len(bad))
END
}

# summary: the table of what ran where, the ends of the logs of what failed, and the closing line. Ends the script.
summary() {
  local tier what passed failed seconds log allPassed=0 allFailed=0
  touch "$RESULTS"
  printf '\n%-14s %-45s %7s %7s %8s\n' tier what passed failed seconds
  # Together what belongs together: rows come in the order in which the parts ended.
  while IFS='|' read -r tier what passed failed seconds log; do
    printf '%-14s %-45s %7d %7d %8d\n' "$tier" "$what" "$passed" "$failed" "$seconds"
    allPassed=$((allPassed + passed))
    allFailed=$((allFailed + failed))
  done < <(sort -s -t '|' -k 1,1 "$RESULTS")
  while IFS='|' read -r tier what passed failed seconds log; do
    [ "$failed" -ne 0 ] || continue
    printf '\nfailed: %s: %s; the end of %s:\n' "$tier" "$what" "$log"
    tail -n 12 "$log"
  done <"$RESULTS"
  rm -f "$RESULTS"
  printf '\nin all %d s\n' "$SECONDS"
  printf '%d passed, %d failed\n' "$allPassed" "$allFailed"
  if [ "$allFailed" -eq 0 ] && [ "$allPassed" -gt 0 ]; then exit 0; fi
  exit 1
}
