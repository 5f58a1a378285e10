# shellcheck shell=bash
# Sourced by ./run and ./test: what a fresh Debian machine lacks, and what both say in the same words.
#
# A|B in a list of packages is what releases of Debian call differently: the first name that is installed or offered
# counts. With nothing after the bar it is done without where no release offers it any more.

# What builds and runs the helper.
helper_packages=(
  g++ cmake ninja-build pkg-config
  qt6-base-dev qt6-wayland libgl-dev libxcb1-dev libsystemd-dev 'libboost1.81-dev|libboost-dev'
  'libboost-json1.81-dev|libboost-json-dev' 'libboost-url1.81-dev|libboost-url-dev' libfast-float-dev
  curl ffmpeg yt-dlp
)

# What makes the Debian package: its relations to libraries, its icons.
packing_packages=(dpkg-dev file librsvg2-bin)

# A display, a session and a screen reader's view for the demonstration.
demo_packages=(
  xvfb openbox x11-utils xdotool trayer imagemagick fonts-dejavu-core dbus at-spi2-core python3 python3-gi gir1.2-atspi-2.0
  openssl iproute2 procps
)

# A compositor with a bar instead of the display's own window manager, and what makes another program's window.
wayland_packages=(sway waybar gir1.2-gtk-3.0)

# What builds and runs the tests besides. Clang brings GCC's Objective-C. Each release of Clang formats and judges in
# its own way, so those two are of one release.
test_packages=(
  clang 'clang-format-14|' 'clang-tidy-14|' libclang-rt-dev llvm libgtest-dev libgmock-dev git
  libgnustep-gui-dev 'gnustep-back0.29-cairo|gnustep-back0.32-cairo' libblocksruntime-dev xfonts-base libplist-utils
)

# What checks the package, and the desktop's own ways to start the helper.
package_test_packages=(lintian desktop-file-utils appstream man-db xdg-utils libglib2.0-bin)

# What ./bench measures with, and the programs that it compares with.
bench_packages=(
  libbenchmark-dev libxcb-damage0-dev
  transmission-qt uget youtubedl-gui syncthingtray
)

say() { printf '\033[1m%s\033[0m\n' "$*"; }

# Ends with one line that says why.
die() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 2; }

# Prints the comment at the beginning of a script.
print_help() { sed -n '2,/^[^#]/{/^[^#]/!s/^# \{0,1\}//p}' "$1"; }

is_installed() { # PACKAGE
  if command -v dpkg-query >/dev/null; then
    dpkg-query --show --showformat='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
  else
    shows "${sign_of[$1]:-$1}"
  fi
}

# What a system that has no such packages has instead, where that is no program of the package's name.
declare -A sign_of=(
  [ninja-build]=ninja [qt6-base-dev]=Qt6Widgets.pc [qt6-wayland]='libqwayland*.so' [libgl-dev]=gl.pc
  [libxcb1-dev]=xcb.pc [libsystemd-dev]=libsystemd.pc [libboost-dev]=boost/beast.hpp
  [libboost-json-dev]=boost/json.hpp [libboost-url-dev]=boost/url.hpp
  [libfast-float-dev]=fast_float/fast_float.h [nodejs]=node
  [dpkg-dev]=dpkg-shlibdeps [librsvg2-bin]=rsvg-convert
  [xvfb]=Xvfb [x11-utils]=xprop [imagemagick]=import [fonts-dejavu-core]=fc-list [dbus]=dbus-daemon
  [at-spi2-core]=atspi-2.pc [python3-gi]=pygobject-3.0.pc [gir1.2-atspi-2.0]=atspi-2.pc [iproute2]=ip [procps]=ps
  [gir1.2-gtk-3.0]=gtk+-3.0.pc
  [libclang-rt-dev]=clang [llvm]=llvm-symbolizer [libgtest-dev]=gtest/gtest.h [libgmock-dev]=gmock/gmock.h
  [libgnustep-gui-dev]=gnustep-config [gnustep-back0.32-cairo]=gnustep-config [libblocksruntime-dev]=Block.h
  [xfonts-base]=mkfontscale [libplist-utils]=plistutil [desktop-file-utils]=desktop-file-validate
  [appstream]=appstreamcli [man-db]=man [xdg-utils]=xdg-open [libglib2.0-bin]=gdbus
)

shows() { # PROGRAM, MODULE.pc, HEADER or Qt's PLATFORM.so
  case $1 in
    *.so) compgen -G "$(qtpaths6 --query QT_INSTALL_PLUGINS 2>/dev/null)/platforms/$1" >/dev/null ;;
    *.pc) pkg-config --exists "${1%.pc}" 2>/dev/null ;;
    *.h | *.hpp) [ -e "/usr/include/$1" ] || [ -e "/usr/local/include/$1" ] ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

# By name alone apt knows also what only other packages speak of.
is_offered() { [ -n "$(apt-cache madison "$1" 2>/dev/null)" ]; } # PACKAGE

# Of each named package that is missing the name that it has here; as it was written where apt offers none.
missing_packages() {
  local package name names
  for package in "$@"; do
    IFS='|' read -ra names <<<"$package"
    for name in "${names[@]}"; do
      if is_installed "$name"; then continue 2; fi
      if [ "$package" = "$name" ] || is_offered "$name"; then echo "$name"; continue 2; fi
    done
    [[ $package = *'|' ]] || echo "$package"
  done
}

# Installs those of the named packages that are missing.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null || die "no apt-get here; what is missing is called on Debian: ${missing[*]}"
  require_root "apt-get install ${missing[*]}"
  as_root apt-get update -q || die "these packages could not be installed: ${missing[*]}"
  mapfile -t missing < <(missing_packages "$@")  # a fresh machine has not known the names before
  say "Installing: ${missing[*]}"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}" ||
    die "these packages could not be installed: ${missing[*]}"
}

require_root() { # WHAT IT IS FOR
  [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || die "no sudo here; run as root: $1"
}

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }

# A Node.js of another origin than Debian's serves as well.
add_node_package() { # ARRAY OF PACKAGES
  local -n packages_=$1
  if ! command -v node >/dev/null; then packages_+=(nodejs); fi
}

# Brings the compiler that checks the processor's types.
add_npm_package() { # ARRAY OF PACKAGES
  local -n packages_=$1
  if ! command -v npm >/dev/null; then packages_+=(npm); fi
}

# The tests want a reporter that came with 18.15.
require_node() { # PATH
  local version major minor
  version=$("$1" --version 2>/dev/null) || die "$1 is no Node.js that runs here"
  IFS=. read -r major minor _ <<<"${version#v}"
  [ "$major" -gt 18 ] || { [ "$major" -eq 18 ] && [ "$minor" -ge 15 ]; } ||
    die "$1 is Node.js ${version#v}, and 18.15 or later is needed"
}

# Keeps a second run out of a folder of this tree's builds while this one lasts, and this one out when it is the second.
lock_folder() { # FOLDER
  local holder
  { mkdir -p "$1" && exec 9<>"$1/run.lock"; } 2>/dev/null ||
    die "$1 cannot be written; a copy of this tree can be built elsewhere"
  if ! flock --nonblock 9; then
    holder=$(cat "$1/run.lock")
    die "another run uses this tree: process $holder. Wait for its end"
  fi
  echo $$ >"$1/run.lock"
}

build_preset() { # PRESET [TARGET ...]
  local preset=$1 log=build/configure-$1.log
  shift
  cmake --preset "$preset" >"$log" 2>&1 || { cat "$log"; return 1; }
  cmake --build --preset "$preset" ${1:+--target "$@"}
}

# Makes the Debian package of a preset; its path is in $package then.
make_package() { # PRESET [CPACK OPTIONS ...]
  local log=build/package-$1.log
  build_preset "$1" zunto-helper linux_files || return
  rm -rf "build/$1/package"
  cpack --config "build/$1/CPackConfig.cmake" "${@:2}" >"$log" 2>&1 || { cat "$log"; return 1; }
  package=$(echo "$root/build/$1/package"/*.deb)
}

# Whether the display that the environment names takes connections.
display_answers() {
  local name=${DISPLAY:-} host number socket=${WAYLAND_DISPLAY:-}
  if [ -n "$socket" ]; then
    [[ $socket = /* ]] || socket=${XDG_RUNTIME_DIR:-}/$socket
    if takes_connections --unix-socket "$socket"; then return 0; fi
  fi
  [[ $name =~ ^(.*):([0-9]+)(\.[0-9]+)?$ ]] || return 1
  host=${BASH_REMATCH[1]} number=${BASH_REMATCH[2]}
  if [[ -z $host || $host = unix ]]; then
    socket=/tmp/.X11-unix/X$number
    takes_connections --unix-socket "$socket" || takes_connections --abstract-unix-socket "$socket"
  else
    takes_connections "http://$host:$((6000 + number))/"
  fi
}

# curl's status is 6 where there is no such host and 7 where nothing listens, but not when what listens does not speak
# HTTP.
takes_connections() { # CURL OPTION OR ADDRESS ...
  local status=0
  curl --disable --silent --noproxy '*' --max-time 2 --output /dev/null "$@" ${2:+http://localhost/} || status=$?
  [ "$status" -ne 6 ] && [ "$status" -ne 7 ]
}

# Sockets stand in the temporary folder: their addresses take no blank and no more than 108 characters.
use_short_temporary_folder() {
  local folder=${TMPDIR:-/tmp}
  if [[ ${#folder} -ge 54 || $folder =~ [^A-Za-z0-9/._-] || ! -w $folder || ! -d $folder ]]; then
    echo "TMPDIR ($folder) cannot be used for sockets; /tmp serves instead."
    export TMPDIR=/tmp
  fi
}

# Lays out the resources folder beside an executable: $1 the folder, $2 to $5 node, yt-dlp, ffmpeg and ffprobe.
stage_resources() {
  local resources=$1 tools=(node yt-dlp ffmpeg ffprobe) tool
  shift
  mkdir -p "$resources/runtime/bin" "$resources/processor"
  for tool in "${tools[@]}"; do
    ln -sfn "$1" "$resources/runtime/bin/$tool"
    shift
  done
  ln -sfn "$root/processor/src" "$resources/processor/src"
}
