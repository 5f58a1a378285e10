# shellcheck shell=bash
# Sourced by ./test: what each suite does. A suite writes the report that it is counted by to $report.

# The project's files that match the patterns, each ended by a NUL; without Git's help where the tree is no clone.
source_files() { # PATTERN ...
  if [ "$(git rev-parse --show-toplevel 2>/dev/null)" = "$root" ]; then
    git ls-files -z -- "$@"
  else
    local pattern names=()
    for pattern in "$@"; do names+=(-o -name "$pattern"); done
    find . \( -path './build*' -o -name node_modules \) -prune -o -type f \( "${names[@]:1}" \) -print0
  fi
}

# The tool of Clang 14: another release formats and judges otherwise. Fails when it is not here.
clang_14() { # NAME
  local tool
  for tool in "$1-14" "$1"; do
    if [[ $("$tool" --version 2>/dev/null) = *' version 14.'* ]]; then echo "$tool"; return; fi
  done
  return 1
}

suite_format() {
  local tool
  tool=$(clang_14 clang-format) || { leave_out "clang-format 14"; return; }
  source_files '*.h' '*.cpp' '*.mm' | xargs -0 "$tool" --dry-run -Werror
}

# GCC 12 resumes at a wrong address where a co_await stands in a condition.
suite_await() {
  ! source_files '*.h' '*.cpp' '*.mm' |
    xargs -0 grep -nE '\b(if|while|for|switch) \(([^()]|\([^()]*\))*co_await'
}

run_tests() { # PRESET [CTEST OPTIONS ...]
  ctest --test-dir "build/$1" --parallel "$(nproc)" --output-on-failure --progress --no-tests=error \
    --output-junit "$report" "${@:2}"
}

# The tests of a folder carry its name as their label. What is in no other suite is in suite_backends.
logic='app|async|import|model|protocol' faces='appkit|faces'
suite_logic() {
  local folder targets=()
  for folder in ${logic//|/ }; do targets+=("tests/$folder/all"); done
  build_preset gcc "${targets[@]}" && run_tests gcc --label-regex "^($logic)\$"
}
suite_backends() { build_preset gcc && run_tests gcc --label-exclude "^($logic|$faces|simulation)\$"; }
suite_faces() {
  build_preset gcc tests/faces/all tests/appkit/all && run_tests gcc --label-regex "^($faces)\$" && each_face_has_run
}
suite_simulation() {
  build_preset gcc tests/simulation/all && run_tests gcc --label-regex '^simulation$' && schedules_have_run
}
suite_sanitize() { build_preset sanitize && run_tests sanitize; }
suite_threads() { build_preset threads && run_tests threads; }

# A face runs all its cases in one test; it says how many there were.
each_face_has_run() {
  local face
  for face in Qt AppKit; do
    grep -hE "^$face face: [0-9]+ cases" build/gcc/Testing/Temporary/LastTest.log || {
      echo "The $face face ran no case."
      return 1
    }
  done
}

# A test runs thousands of schedules; it says how many there were.
schedules_have_run() {
  awk '/^[0-9]+ schedules with [0-9]+ events hold$/ { schedules += $1; events += $4 }
    END { print schedules " schedules with " events " events hold"; exit schedules == 0 }' \
    build/gcc/Testing/Temporary/LastTest.log
}

# As many as asked, from another seed each time. What fails is told with its shortest trace.
suite_soak() {
  set -o pipefail
  build_preset gcc simulation &&
    build/gcc/tests/simulation/simulation --schedules "$soak" --from "$(date +%s)000000" | tee "$report"
}

# What it finds worth keeping stays in build/fuzz. The targets are made of what the tests with sanitizers are made of.
fuzz_seconds=8
suite_fuzz() {
  set -o pipefail
  build_preset sanitize tests/fuzz/all &&
    python3 tests/fuzz/fuzz.py --seconds "$fuzz_seconds" build/sanitize build/fuzz | tee "$report"
}

# How a test that is no suite is counted: a file of the processor's tests, a C++ test (Group.Case) or a group of them.
# Fails when there is no such test.
case_format() { # NAME
  case $1 in
    processor/test/*.test.mjs) [ -f "$1" ] && echo tap ;;
    *) [ -n "$(declarations "$1")" ] && echo junit ;;
  esac
}

run_case() { # NAME
  case $1 in
    *.test.mjs) node_tests "$1" ;;
    *) case $(declarations "$1") in
      # A face runs all its cases in one test.
      tests/faces/* | tests/appkit/*)
        build_preset gcc tests/faces/all tests/appkit/all &&
          GTEST_FILTER="*$1*" run_tests gcc --tests-regex '_(face|backend)_test$' ;;
      *) build_preset gcc && run_tests gcc --tests-regex "(^|/)${1/./\\.}([./]|\$)" ;;
    esac ;;
  esac
}

# The files that declare a C++ test or group of tests.
declarations() { # NAME
  local group=${1%%.*} name=
  [[ $1 =~ ^[A-Za-z0-9_]+(\.[A-Za-z0-9_]+)?$ ]] || return 0
  if [[ $1 == *.* ]]; then name="\\s*${1#*.}\\s*\\)"; fi
  grep -rlzP "\\bTEST(_F|_P)?\\(\\s*$group\\s*,$name" tests
}

# The compiler comes from npm's registry, once and in the version that the lock file holds.
suite_types() (
  cd processor || exit
  if [ ! node_modules/.package-lock.json -nt package-lock.json ]; then npm ci || exit; fi
  npm run types
)

suite_processor() { node_tests processor/test/*.test.mjs; }

node_tests() { # FILE ...
  timeout -k 10 "$((900 + 4 * ${ZUNTO_FUZZ_SECONDS:-0}))" node --test --test-reporter=spec --test-reporter-destination=stdout \
    --test-reporter=tap --test-reporter-destination="$report" "$@"
}

# The parts of the other suites that could let a fault pass.
suite_tools() { python_tests tests/desktop; }
suite_commands() { python_tests tests/commands; }

python_tests() { # FOLDER
  set -o pipefail
  python3 -m unittest discover --verbose --start-directory "$1" --pattern '*_test.py' 2>&1 | tee "$report"
}

suite_desktop() { drive_program gcc demo; }
# Beside what only a compositor decides the main job alone: all else is the same code, and has been driven there.
suite_wayland() { drive_program gcc demo --wayland --brief; }
# As ./run builds it.
suite_faults() { drive_program release faults; }

drive_program() { # PRESET PROGRAM-OF-tests/desktop ITS-OPTIONS
  local bin=$root/build/$1/bin
  build_preset "$1" zunto-helper || return 1
  stage_resources "$bin/resources" "$(command -v node)" "$(command -v yt-dlp)" "$(command -v ffmpeg)" \
    "$(command -v ffprobe)" &&
    python3 "tests/desktop/$2.py" --helper "$bin/zunto-helper" --output "${report%.report}" "${@:3}" | tee "$report"
}

# Below a prefix of its own, since only a bare system may have it below /usr: see live_on_bare_systems.
suite_package() {
  local package prefix status=0
  make_package gcc || return
  prefix=$(mktemp -d "${TMPDIR:-/tmp}/zunto-prefix-XXXXXX")
  cmake --install build/gcc --prefix "$prefix" >"$prefix.log" &&
    update-desktop-database "$prefix/share/applications" &&
    tests/package/check_package.py --package "$package" --prefix "$prefix" --output "$reports/package" |
    tee "$report" || status=$?
  rm -rf "$prefix" "$prefix.log"
  return "$status"
}

# The package's life on one bare system of each release.
live_on_bare_systems() { # RELEASE ...
  local release
  if [ $# -eq 0 ]; then set -- bookworm trixie; fi
  for release in "$@"; do
    [[ $release =~ ^[a-z]+$ ]] || die "$release is no release of Debian (see ./test --help)"
    suite "--package $release" 10 lines "Package on a bare $release"
    function["--package $release"]=live_on_bare_system
    chosen+=("--package $release")
  done
  lock_folder "$root/build"
  clear_reports
  run_suites
}

live_on_bare_system() { # --package RELEASE
  set -o pipefail
  scripts/bare "${1#* }" tests/package/live.sh | tee "$report"
}

# The sources of the program; headers are read with them.
suite_lint() {
  local tool options=()
  tool=$(clang_14 clang-tidy) || { leave_out "clang-tidy 14"; return; }
  options=(--clang-tidy "$tool")
  if [ "${CI:-}" = true ]; then options+=(--all); fi
  build_preset gcc && python3 scripts/test/lint.py "${options[@]}" build/gcc async platform protocol import app |
    tee "$report"
}
