# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Packages of other suites and architectures, fetched without touching the system's configuration.

# The mirror that apt itself uses; known once its lists have been fetched.
mirror() {
    # shellcheck disable=SC2016 # apt's own variable
    apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Label: Debian' 2>/dev/null | head -n 1
}

# apt with a sources list and state of its own, as if nothing was installed. The first argument is the
# folder for them, then come the type of the sources (deb or deb-src) and the suite. Packages are still
# checked against Debian's keys.
apt_apart() {
    local state=$1 type=$2 suite=$3
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    shift 3
    mkdir -p "$state/lists/partial" "$state/cache/archives/partial" || return 1
    : >"$state/status"
    printf '%s [signed-by=%s] %s %s main\n' "$type" "$keyring" "$(mirror)" "$suite" >"$state/sources.list"
    apt-get -o Dir::Etc::SourceList="$state/sources.list" -o Dir::Etc::SourceParts=- \
        -o Dir::State::Lists="$state/lists" -o Dir::State::status="$state/status" -o Dir::Cache="$state/cache" \
        -o APT::Sandbox::User=root "$@"
}
