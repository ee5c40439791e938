# What the scripts share. Sourced, not run.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*" >&2; }

# Installs the packages of some groups ('build' unless others are named) that are not there.
install_packages() {
  local missing=() group package
  while read -r group package; do
    [[ " ${*:-build} " == *" $group "* ]] || continue
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done < <(grep -v '^#' "$top/scripts/packages.txt")
  [ ${#missing[@]} -eq 0 ] && return
  say "Installing ${missing[*]}"
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# Configures and builds with a preset, into its folder.
build() {
  local preset=$1
  shift
  (cd "$top" && cmake --preset "$preset" >&2 && cmake --build --preset "$preset" "$@" >&2)
}
