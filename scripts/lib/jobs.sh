# shellcheck shell=bash
# Running the parts of a long piece of work side by side, in an order that their needs allow.
# Sourced after common.sh, whose stopJobs ends what BACKGROUND names.
# shellcheck disable=SC2034

JOB_NAMES=()            # in the order of preference
declare -A JOB_NEEDS    # name: the names of the jobs that must have ended well before
declare -A JOB_COMMAND  # name: the command, quoted

# job NAME NEEDS COMMAND ARGS...: plans a job. NEEDS: names separated by blanks; one that was not planned before is no need,
# so that no two jobs can wait for each other.
job() {
  local name=$1 need needs=
  for need in $2; do
    [ -z "${JOB_COMMAND[$need]:-}" ] || needs+=" $need"
  done
  shift 2
  JOB_NAMES+=("$name")
  JOB_NEEDS[$name]=$needs
  JOB_COMMAND[$name]=$(printf '%q ' "$@")
}

# isPossible NAME: 0 when all needs have ended well, 1 when one is still to come, 2 when one has failed. Reads jobState.
isPossible() {
  local need
  for need in ${JOB_NEEDS[$1]}; do
    case ${jobState[$need]} in
      done) ;;
      failed) return 2 ;;
      *) return 1 ;;
    esac
  done
}

# startJob NAME: starts it in a process group of its own, by which an interrupt reaches all of it. In the job, LANE is a number
# from 0 that no other running job has.
startJob() {
  local lane=0
  while [[ " ${laneOf[*]} " == *" $lane "* ]]; do lane=$((lane + 1)); done
  set -m
  { catchSignals; export LANE=$lane; eval "${JOB_COMMAND[$1]}"; } </dev/null &
  set +m
  jobOf[$!]=$1
  laneOf[$!]=$lane
  jobState[$1]=running
  BACKGROUND="${!jobOf[*]}"
}

# startWhatIsPossible COUNT: starts jobs until COUNT are running. One whose need failed is not run and counts as failed.
startWhatIsPossible() {
  local name possible
  for name in "${JOB_NAMES[@]}"; do
    [ "${#jobOf[@]}" -lt "$1" ] || return 0
    [ "${jobState[$name]}" = waiting ] || continue
    possible=0
    isPossible "$name" || possible=$?
    case $possible in
      0) startJob "$name" ;;
      2)
        say "not run, because what it needs failed: $name"
        jobState[$name]=failed
        ;;
    esac
  done
}

# runJobs COUNT [stop]: runs all planned jobs, at most COUNT at a time; of those that are possible the one that was planned first.
# With "stop" the first that fails ends the others at once, so that its last lines are the last of all. Returns 0 only if every
# job ended well.
runJobs() {
  local name finished status
  local -A jobState=() jobOf=() laneOf=()
  for name in "${JOB_NAMES[@]}"; do jobState[$name]=waiting; done
  startWhatIsPossible "$1"
  while [ "${#jobOf[@]}" -gt 0 ]; do
    status=0
    wait -n -p finished "${!jobOf[@]}" || status=$?
    name=${jobOf[$finished]}
    unset "jobOf[$finished]" "laneOf[$finished]"
    BACKGROUND="${!jobOf[*]}"
    if [ "$status" -eq 0 ]; then jobState[$name]="done"; else jobState[$name]=failed; fi
    if [ "$status" -ne 0 ] && [ "${2:-}" = stop ]; then
      endJobs
      return 1
    fi
    startWhatIsPossible "$1"
  done
  [[ " ${jobState[*]} " != *" failed "* ]]
}
