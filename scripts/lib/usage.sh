# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Sourced by scripts before they leave the folder that they were started in.

script=$(realpath "$0")

# Prints the comment at the top of the script to the standard error and ends it: it was called wrongly.
usage() {
    sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "$script" >&2
    exit 2
}
