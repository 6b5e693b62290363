# Helpers shared by the scripts that install packages. Sourced, not run.

# The oldest open62541 with the decoding fixes the tool relies on, and the first version
# whose API may differ from the 1.4 API the tool uses (Debian version order: 1.5~rc1 is
# already above 1.5~).
OPEN62541_MIN=1.4.18
OPEN62541_BELOW=1.5~
# Where scripts/build-open62541.sh keeps the static open62541 builds (outside the
# repository; CI machines may keep /var/cache between runs), and the files it writes into
# each installation: the stamp of the build's inputs and Debian's version of the source.
OPEN62541_CACHE=/var/cache/discover/open62541
OPEN62541_STAMP=discover-build.stamp
OPEN62541_SOURCE_VERSION_FILE=debian-source-version

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

# The source of open62541: Debian's unstable suite, source packages only (deb-src), so
# that no binary package of unstable can reach the machine. Debian's archive key signs its
# index, which vouches for every file apt-get source downloads.
write_open62541_source_entry() {
  write_if_changed /etc/apt/sources.list.d/discover-open62541-src.sources <<'SRC'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: sid
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
}

apt_update_once() {
  if [ -z "${APT_UPDATED:-}" ]; then
    apt-get update
    APT_UPDATED=1
  fi
}
