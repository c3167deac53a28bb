#!/usr/bin/env bash
# Installs the Debian packages that building and testing Inkharbour needs.
# Idempotent: does nothing when everything is present; runs apt-get update only
# when something is missing; uses sudo only when not root.
set -euo pipefail

packages=(
  build-essential cmake pkg-config make
  libzip-dev zlib1g-dev libexpat1-dev libutf8proc-dev uuid-dev libssl-dev
  libcli11-dev libstb-dev libsimdjson-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  git zip  # the reference points merge_bench times against
  qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libgl-dev  # the window (Qt 6 Widgets)
  fonts-dejavu-core  # a bare machine has no font to show text with
  xvfb xauth xdotool imagemagick  # make run without a display, scripts/screenshots.sh
  clang libclang-rt-14-dev  # make fuzz: libFuzzer and the sanitizers' runtimes
  libreoffice-writer-nogui  # the co-author's office program in the "libreoffice" tests
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
