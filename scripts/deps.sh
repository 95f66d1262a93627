# Sourced by the build and test scripts: installs missing Debian packages.
#
# ensure_packages PKG...  installs the packages that are not installed yet
# (as root with apt-get; otherwise prints the apt-get line and fails).

missing_packages() {
    local p
    for p in "$@"; do
        dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q '^install ok installed$' || printf '%s ' "$p"
    done
}

# i386 and amd64 copies of a multiarch package must carry the same version.
# When one architecture's index lags (a mirror mid-sync), pin both copies to
# the version the lagging architecture offers and try again.
pin_skewed_multiarch() {
    local log=$1 name ver pins=""
    for name in $(grep -oE 'Depends: [a-z0-9.+-]+:i386' "$log" | sed 's/Depends: //; s/:i386//' | sort -u); do
        ver=$(apt-cache policy "$name:i386" | awk '/Candidate:/ {print $2}')
        [ -n "$ver" ] && [ "$ver" != "(none)" ] && pins="$pins $name=$ver $name:i386=$ver"
    done
    printf '%s' "$pins"
}

ensure_packages() {
    local missing
    missing=$(missing_packages "$@")
    [ -z "$missing" ] && return 0
    if [ "$(id -u)" != 0 ]; then
        echo "qrvutil needs these Debian packages; install them as root with:" >&2
        echo "  apt-get install -y $missing" >&2
        return 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    case "$missing" in *:i386*)
        dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386 ;;
    esac
    # An index that fails to download (mirror sync) must not stop the install.
    apt-get update -qq || true
    local log pins="" try
    log=$(mktemp)
    for try in 1 2 3 4; do
        # shellcheck disable=SC2086
        if apt-get install -y -qq --no-install-recommends --allow-downgrades $missing $pins >"$log" 2>&1; then
            rm -f "$log"
            return 0
        fi
        pins="$pins $(pin_skewed_multiarch "$log")"
    done
    cat "$log" >&2
    rm -f "$log"
    return 1
}

QRV_BUILD_PACKAGES="cmake make g++ pkg-config libtinyxml-dev libsqlite3-dev"
QRV_BUILD_PACKAGES="$QRV_BUILD_PACKAGES libcli11-dev nlohmann-json3-dev help2man"
QRV_TEST_PACKAGES="$QRV_BUILD_PACKAGES libgtest-dev libxml2-utils clang ffmpeg x264"
QRV_TEST_PACKAGES="$QRV_TEST_PACKAGES python3"
QRV_BENCH_PACKAGES="$QRV_BUILD_PACKAGES libbenchmark-dev"
QRV_FORMAT_PACKAGES="clang-format"
QRV_DOCS_PACKAGES="$QRV_BUILD_PACKAGES doxygen"
QRV_M32_PACKAGES="g++-multilib libtinyxml-dev:i386 libsqlite3-dev:i386 libgtest-dev:i386"
QRV_FUZZ_PACKAGES="$QRV_BUILD_PACKAGES clang libclang-rt-14-dev python3"
