# Helpers shared by the scripts that install packages. Sourced, not run.

# The oldest open62541 with the decoding fixes the tool relies on.
OPEN62541_MIN=1.4.18

# Writes standard input to a file unless the file already holds exactly that.
write_if_changed() {
  local path=$1 tmp
  tmp=$(mktemp)
  cat > "$tmp"
  if [ -f "$path" ] && cmp -s "$tmp" "$path"; then
    rm -f "$tmp"
  else
    install -m 0644 "$tmp" "$path"
    rm -f "$tmp"
  fi
}

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'
}

# True when the package is installed in version OPEN62541_MIN or newer.
recent_open62541() {
  local version
  installed "$1" || return 1
  version=$(dpkg-query -W -f='${Version}' "$1")
  dpkg --compare-versions "$version" ge "$OPEN62541_MIN"
}

apt_update_once() {
  if [ -z "${APT_UPDATED:-}" ]; then
    apt-get update
    APT_UPDATED=1
  fi
}
