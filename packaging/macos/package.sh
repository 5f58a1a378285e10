#!/bin/sh
# Makes a built "ZUNTO Helper.app" complete: puts the tools into it, signs it from the inside out, checks the
# signatures, and on request has it notarised and makes a disk image. Each step says what it does.
#
#   package.sh APP --node PATH --yt-dlp PATH --ffmpeg PATH --ffprobe PATH [OPTION ...]
#   package.sh APP --use-installed [OPTION ...]
#
#   --use-installed       stages scripts that run the tools found on PATH instead of the tools themselves: for
#                         trying the helper on this Mac, never for giving it away
#   --identity NAME       signs as NAME ("Developer ID Application: ..."); without it the signature is ad hoc
#   --notarize PROFILE    has Apple notarise the result with the credentials that "xcrun notarytool
#                         store-credentials PROFILE" has put into the keychain; needs --identity
#   --disk-image FILE     makes FILE, a disk image with the application
set -eu

here=$(cd "$(dirname "$0")" && pwd)
app='' node='' ytdlp='' ffmpeg='' ffprobe='' identity=- profile='' image='' installed=''

fail() {
  echo "package.sh: $*" >&2
  exit 1
}

say() {
  echo "==> $*"
}

read_arguments() {
  [ $# -gt 0 ] || fail "which application? (see the head of this script)"
  app=${1%/}
  shift
  while [ $# -gt 0 ]; do
    case $1 in
      --use-installed) installed=yes; shift; continue ;;
      --node | --yt-dlp | --ffmpeg | --ffprobe | --identity | --notarize | --disk-image) ;;
      *) fail "unknown option $1" ;;
    esac
    [ $# -gt 1 ] || fail "$1 needs a value"
    case $1 in
      --node) node=$2 ;;
      --yt-dlp) ytdlp=$2 ;;
      --ffmpeg) ffmpeg=$2 ;;
      --ffprobe) ffprobe=$2 ;;
      --identity) identity=$2 ;;
      --notarize) profile=$2 ;;
      --disk-image) image=$2 ;;
    esac
    shift 2
  done
}

check_arguments() {
  [ -f "$app/Contents/Info.plist" ] || fail "$app is no application"
  [ -f "$app/Contents/Resources/processor/src/index.mjs" ] || fail "$app has no processor: build it first"
  if [ -n "$profile" ]; then
    [ "$identity" != - ] || fail "--notarize needs --identity"
    [ -z "$installed" ] || fail "scripts that run other programs' tools are not notarised: leave --use-installed out"
  fi
  [ -z "$installed" ] || return 0
  for given in "$node" "$ytdlp" "$ffmpeg" "$ffprobe"; do
    [ -n "$given" ] || fail "--node, --yt-dlp, --ffmpeg and --ffprobe are all needed (or --use-installed)"
    [ -x "$given" ] || fail "$given is no program"
  done
}

# A program that needs libraries of this Mac's package manager does not run on another one; under the hardened
# runtime, which takes libraries of the system and of the same signer only, not even here.
check_self_contained() {
  file -bL "$1" | grep -q Mach-O || fail "$1 is no program of macOS"
  foreign=$(otool -L "$1" | awk '/^\t/ { print $1 }' | grep -v -e '^/usr/lib/' -e '^/System/' || true)
  [ -z "$foreign" ] || fail "$1 needs libraries that are not of the system; link them statically:
$foreign"
}

stage_tool() {
  name=$1
  source=$2
  if [ -n "$installed" ]; then
    source=$(command -v "$name") || fail "$name is not installed"
    say "runtime/bin/$name runs $source"
    printf '#!/bin/sh\nexec "%s" "$@"\n' "$source" >"$tools/$name"
  else
    say "runtime/bin/$name is $source"
    check_self_contained "$source"
    cp "$source" "$tools/$name"
  fi
  chmod 755 "$tools/$name"
}

stage_tools() {
  tools="$app/Contents/Resources/runtime/bin"
  rm -rf "$tools"
  mkdir -p "$tools"
  stage_tool node "$node"
  stage_tool yt-dlp "$ytdlp"
  stage_tool ffmpeg "$ffmpeg"
  stage_tool ffprobe "$ffprobe"
  # A mark that a download has left would make the system ask about each tool.
  xattr -cr "$app"
}

# sign FILE [ENTITLEMENTS]
# The entitlements' files hold no comments: the kernel reads them, and its reader knows none.
sign() {
  set -- "$1" ${2:+--entitlements "$here/$2"}
  target=$1
  shift
  if [ "$identity" = - ]; then
    set -- --timestamp=none "$@"
  else
    set -- --timestamp "$@"
  fi
  codesign --force --options runtime --sign "$identity" "$@" "$target"
}

# What is inside is signed before what holds it: the outer signature seals the inner ones.
sign_everything() {
  if [ -z "$installed" ]; then
    say "signing the tools"
    sign "$tools/ffmpeg"
    sign "$tools/ffprobe"
    sign "$tools/yt-dlp" yt-dlp.entitlements
    sign "$tools/node" runtime.entitlements
  fi
  say "signing the application"
  sign "$app" helper.entitlements
}

check_signatures() {
  say "checking the signatures"
  if [ -z "$installed" ]; then
    for tool in node yt-dlp ffmpeg ffprobe; do codesign --verify --strict --verbose=2 "$tools/$tool"; done
  fi
  codesign --verify --deep --strict --verbose=2 "$app"
}

# The hardened runtime stops a program that lacks an entitlement only when it runs: neither the signature nor
# the notarisation shows it. What a Mac of the other kind does with a tool for both has to be seen there.
check_tools_run() {
  say "running the tools"
  [ "$("$tools/node" -e 'let n = 0; for (let i = 0; i < 1e7; i++) n += i % 7; console.log(typeof n)')" = number ] ||
    fail "node does not run: see runtime.entitlements"
  "$tools/yt-dlp" --version >/dev/null || fail "yt-dlp does not run"
  "$tools/ffmpeg" -version >/dev/null || fail "ffmpeg does not run"
  "$tools/ffprobe" -version >/dev/null || fail "ffprobe does not run"
}

notarize() {
  say "having it notarised; this takes some minutes"
  upload="$work/upload.zip"
  ditto -c -k --keepParent "$app" "$upload"
  xcrun notarytool submit "$upload" --keychain-profile "$profile" --wait
  xcrun stapler staple "$app"
  spctl --assess --type execute --verbose=2 "$app"
}

make_disk_image() {
  say "making $image"
  mkdir "$work/image"
  ditto "$app" "$work/image/$(basename "$app")"
  ln -s /Applications "$work/image/Applications"
  hdiutil create -volname "ZUNTO Helper" -srcfolder "$work/image" -format UDZO -ov "$image"
  [ "$identity" = - ] || codesign --force --timestamp --sign "$identity" "$image"
  if [ -n "$profile" ]; then
    xcrun notarytool submit "$image" --keychain-profile "$profile" --wait
    xcrun stapler staple "$image"
  fi
}

read_arguments "$@"
check_arguments
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
check_self_contained "$app/Contents/MacOS/ZUNTO Helper"
stage_tools
sign_everything
check_signatures
check_tools_run
[ -z "$profile" ] || notarize
[ -z "$image" ] || make_disk_image
say "$app is complete"
