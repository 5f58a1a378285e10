# Sourced by ./run and ./test: what a fresh Debian machine lacks.

# What builds and runs the helper.
helper_packages=(
  g++ cmake ninja-build pkg-config
  qt6-base-dev libgl-dev libboost1.81-dev libboost-json1.81-dev libboost-url1.81-dev libcurl4-openssl-dev
  curl ffmpeg yt-dlp
)

# A display, a session and a screen reader's view for the demonstration.
demo_packages=(
  xvfb openbox x11-utils xdotool imagemagick fonts-dejavu-core dbus at-spi2-core python3 python3-gi gir1.2-atspi-2.0
  openssl iproute2 procps
)

# What builds and runs the tests besides.
test_packages=(
  clang clang-format clang-tidy libclang-rt-14-dev libgtest-dev libgmock-dev git
  libgnustep-gui-dev gnustep-back0.29-cairo libobjc-12-dev libblocksruntime-dev xfonts-base libplist-utils
)

say() { printf '\033[1m%s\033[0m\n' "$*"; }

missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
      printf '%s\n' "$package"
  done
}

# Installs those of the named packages that are missing.
install_packages() {
  local missing as_root=()
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -gt 0 ] || return 0
  say "Installing: ${missing[*]}"
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -q
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# A Node.js of another origin than Debian's serves as well.
node_package() { command -v node >/dev/null || echo nodejs; }

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
