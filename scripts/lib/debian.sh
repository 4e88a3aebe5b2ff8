# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Packages of other suites and architectures, and whole trees of them, without touching this system.

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

# Makes a minimal tree of a suite, in which apt uses and verifies its mirror as on this system. More arguments go
# to debootstrap.
make_tree() {
    local suite=$1 tree=$2
    unshare --mount debootstrap --variant=minbase "${@:3}" "$suite" "$tree" "$(mirror)" >"$tree.log" ||
        { tail -n 20 "$tree.log"; return 1; }
    cp /etc/resolv.conf /etc/hosts "$tree/etc/"
    apt-config dump | grep -E '^Acquire::(https?::Proxy|Check-Valid-Until|Check-Date) ' \
        >"$tree/etc/apt/apt.conf.d/90mirror" || true
}

# Runs commands in a tree, in its own process namespace: no process and no mount outlives this. The tree is
# mounted on itself: buildah refuses a root that is not a mount point.
inside() {
    local tree=$1
    # shellcheck disable=SC2016 # for the inner shell
    unshare --mount --pid --fork sh -c 'mount --bind "$0" "$0" && mount -t proc proc "$0/proc" && exec chroot "$0" "$@"' "$tree" \
        env -i HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin \
        sh -euc "${*:2}"
}
