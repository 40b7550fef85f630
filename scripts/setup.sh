#!/usr/bin/env bash
# Makes sure this machine has what the build, the tests and the benchmarks
# need. Each need is checked the way the build meets it (a command and its
# version, a pkg-config module, a CMake package, a sanitizer link), not by
# package name; whatever fails is installed from Debian's packages and
# checked again. Does nothing, quickly, when all is there.
set -euo pipefail

# One line per need: the Debian package that fills it, then its check:
#   command NAME [MIN]    NAME runs, and its version is MIN or newer
#   file PATH             PATH is a file
#   python MODULE         python3 imports MODULE
#   pkg-config MODULE     pkg-config knows MODULE
#   cmake-package NAME    find_package(NAME CONFIG) would find it
#   sanitizers            clang++ compiles and links with ASan and UBSan
needs=(
    "cmake              command cmake 3.25"
    "ninja-build        command ninja"
    "g++                command g++"
    "clang              command clang++ 14"
    "libclang-rt-14-dev sanitizers"
    "clang-format       command clang-format"
    "pkg-config         command pkg-config"
    "git                command git"
    "ca-certificates    file /etc/ssl/certs/ca-certificates.crt"
    "python3            python tomllib"
    "zsh                command zsh"
    "tmux               command tmux"
    "iproute2           command ip"
    "rustc              command rustc"
    "libpcre2-dev       pkg-config libpcre2-8"
    "libutf8proc-dev    pkg-config libutf8proc"
    "libgtest-dev       cmake-package GTest"
    "libgmock-dev       pkg-config gmock"
    "libbenchmark-dev   cmake-package benchmark"
    "libcli11-dev       cmake-package CLI11"
    "libncurses-dev     pkg-config ncursesw"
)

# The first version number that `NAME --version` prints.
version_of() {
    "$1" --version 2>/dev/null | grep -oE '[0-9]+(\.[0-9]+)+' | head -n 1 || true
}

# check KIND ARGS...: succeeds when the need is met; otherwise sets `lack`
# to what is missing, in words.
check() {
    local kind=$1
    shift
    case $kind in
    command)
        lack="$1${2:+ $2 or newer}"
        command -v "$1" >/dev/null || return 1
        if [ -n "${2:-}" ]; then
            local have
            have=$(version_of "$1")
            lack+=" (found ${have:-no version})"
            [ -n "$have" ] && printf '%s\n%s\n' "$2" "$have" | sort -V -C || return 1
        fi
        ;;
    file)
        lack="the file $1"
        [ -f "$1" ]
        ;;
    python)
        lack="python3 with the module $1"
        command -v python3 >/dev/null && python3 -c "import $1" 2>/dev/null
        ;;
    pkg-config)
        lack="the pkg-config module $1"
        command -v pkg-config >/dev/null && pkg-config --exists "$1"
        ;;
    cmake-package)
        lack="the CMake package $1"
        local configs
        shopt -s nullglob
        configs=(/usr/{local/,}{lib/*,lib,lib64,share}/cmake/"$1"*/{"$1"Config,"${1,,}"-config}.cmake)
        shopt -u nullglob
        ((${#configs[@]}))
        ;;
    sanitizers)
        lack="clang++ that links with -fsanitize=address,undefined"
        command -v clang++ >/dev/null &&
            printf 'int main() { return 0; }\n' |
            clang++ -x c++ -fsanitize=address,undefined -o /dev/null - 2>/dev/null
        ;;
    *)
        lack="a check that scripts/setup.sh does not know: $kind"
        return 1
        ;;
    esac
}

# Runs every check, all at once; fills `packages` (each once) and `lacks`
# (one line each, in the table's order).
check_all() {
    packages=()
    lacks=()
    local report index package what
    report=$(
        for index in "${!needs[@]}"; do
            (
                read -r package kind args <<<"${needs[index]}"
                # shellcheck disable=SC2086 # the check's arguments are words
                check "$kind" $args || printf '%d %s %s\n' "$index" "$package" "$lack"
            ) &
        done
        wait
    )
    while read -r index package what; do
        [ -n "$index" ] || continue
        lacks+=("$(printf '%-58s (%s)' "$what" "$package")")
        [[ " ${packages[*]} " == *" $package "* ]] || packages+=("$package")
    done < <(sort -n <<<"$report")
}

check_all
if ((${#packages[@]} == 0)); then
    exit 0
fi

echo "setup: this machine lacks what the build needs:"
printf 'setup:   %s\n' "${lacks[@]}"
if ! command -v apt-get >/dev/null; then
    echo "setup: install them yourself: this script installs with apt-get, which is not here" >&2
    exit 1
fi
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: installing packages needs root: run this as root, or install sudo" >&2
        exit 1
    fi
    sudo="sudo"
fi

echo "setup: installing ${packages[*]} (apt-get, with what they depend on)"
$sudo apt-get update -qq
# apt-get reports its progress on the status lines (fd 3: on fd 1, package
# scripts' own output fails), whose last one comes before the triggers run,
# so a line of our own says it has finished. The rest of its output is a line
# per package, and debconf's only complaint is that apt-utils, which nothing
# here needs, is not installed.
{
    $sudo sh -c '"$@" 3>&1 && echo pmstatus:apt:100:finished' sh \
        env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
        -o APT::Status-Fd=3 "${packages[@]}" 2>&1 >&3 3>&- |
        { grep -v '^debconf: ' || true; } >&2
} 3>&1 | awk '
    function progress(name, percent) {
        if (name != phase) {
            if (phase != "") printf "\n"
            printf "setup: %-11s", name
            phase = name
            step = 0
        }
        for (; percent >= step + 10; step += 10) printf " %d%%", step + 10
        fflush()
    }
    /newly installed/ { split($0, words, " "); count = words[3] }
    /^Need to get/ {
        size = $0
        sub(/^Need to get /, "", size)
        sub(/ of archives.*/, "", size)
        printf "setup: %s new packages, %s to download\n", count, size
        fflush()
        counted = 1
    }
    /^dlstatus:/ && counted { split($0, fields, ":"); progress("downloading", fields[3] + 0) }
    /^pmstatus:/ { split($0, fields, ":"); progress("installing", fields[3] + 0) }
    END { if (phase != "") printf "\n" }'

check_all
if ((${#packages[@]})); then
    echo "setup: still missing after installing ${packages[*]}:" >&2
    printf 'setup:   %s\n' "${lacks[@]}" >&2
    exit 1
fi
echo "setup: all there"
