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

# The sources that a check is to look at, one a line: those named, with --all every one, else those that differ from the
# commit that this branch left main at (changes that are not committed included).
sources_to_check() {
  if [ "${1:-}" = --all ]; then
    git ls-files '*.cpp' ':!test/kel/compiler/sample' ':!test/installed'
  elif [ $# -gt 0 ]; then
    printf '%s\n' "$@"
  else
    local base
    base=$(git merge-base HEAD main 2>/dev/null || git merge-base HEAD origin/main 2>/dev/null || git rev-parse HEAD)
    {
      git diff --name-only --diff-filter=d "$base"
      git ls-files --others --exclude-standard
    } | grep '\.cpp$' | grep -v -e '^test/kel/compiler/sample/' -e '^test/installed/' | sort -u || true
  fi
}
