# shellcheck shell=bash
# Sourced by ./test: runs suites and counts them.
#
# A suite is a function suite_NAME, announced by a line
#
#   suite NAME MINUTES FORMAT "What it is"
#
# MINUTES  about how long it takes in a fresh clone on two cores
# FORMAT   how the report that it writes to $report is counted: junit, tap, unittest or lines (see count.py), or
#          "status" for one check that has passed when the function succeeds
#
# Every suite that was started counts, as failed when in doubt. One that this machine has no tool for does not start: it
# returns by leave_out "WHAT IS NOT HERE", counts neither way, and is named at the end.

suites=() chosen=() passed=0 failed=0 broken=() left_out=() interrupted=no
declare -A minutes format title function

suite() { suites+=("$1") minutes[$1]=$2 format[$1]=$3 title[$1]=$4 function[$1]=suite_$1; }

leave_out() { missing_tool=$1; }

list_suites() {
  local name
  for name in "${suites[@]}"; do
    printf '  %-12s %s (about %s min)\n' "$name" "${title[$name]}" "${minutes[$name]}"
  done
}

# Notes a suite, or another test that case_format knows and run_case runs.
choose() {
  local format_of_case
  if [ -z "${title[$1]:-}" ]; then
    format_of_case=$(case_format "$1") || die "there is no suite and no test named $1 (see ./test --help)"
    suite "$1" 3 "$format_of_case" "$1"
    function[$1]=run_case
  fi
  chosen+=("$1")
}

clear_reports() {
  reports=$root/build/reports
  rm -rf "$reports"
  mkdir -p "$reports"
}

run_suites() { # the chosen ones
  local name number=0
  trap 'interrupted=yes' INT
  for name in "${chosen[@]}"; do
    number=$((number + 1))
    say "[$number/${#chosen[@]}] ${title[$name]} (about ${minutes[$name]} min)"
    run_suite "$name"
    if [ "$interrupted" = yes ]; then break; fi
  done
  close_run
}

run_suite() {
  local name=$1 report=$reports/${1//\//-}.report status=0 good=0 bad=0 counts began=$SECONDS missing_tool=''
  "${function[$name]}" "$name" 9>&- || status=$?
  if [ -n "$missing_tool" ]; then
    left_out+=("$name")
    say "${title[$name]}: not run, $missing_tool is not here"
    return
  fi
  if [ "${format[$name]}" = status ]; then
    if [ "$status" -eq 0 ]; then good=1; fi
  else
    counts=$(python3 "$root/scripts/test/count.py" "${format[$name]}" "$report") || counts="0 0"
    read -r good bad <<<"$counts"
  fi
  # No case, or a failure beside the cases: the suite itself has failed.
  if [ "$interrupted" = yes ] || [ $((good + bad)) -eq 0 ] || { [ "$status" -ne 0 ] && [ "$bad" -eq 0 ]; }; then
    bad=$((bad + 1))
  fi
  passed=$((passed + good)) failed=$((failed + bad))
  if [ "$bad" -gt 0 ]; then broken+=("$name"); fi
  say "${title[$name]}: $good passed, $bad failed  [$((SECONDS - began)) s]"
}

close_run() {
  if [ "$interrupted" = yes ]; then echo "Interrupted; what is left was not run."; fi
  for name in "${left_out[@]}"; do echo "Not run: ${title[$name]} (./test $name)"; done
  for name in "${broken[@]}"; do echo "Failed: ${title[$name]} (./test $name)"; done
  printf '%d passed, %d failed\n' "$passed" "$failed"
  if [ "$interrupted" = yes ]; then exit 130; fi
  [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
}
