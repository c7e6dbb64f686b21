#!/bin/sh
# file_systems.sh VICTIM: runs VICTIM's scenarios for a full and a read-only file system on a small
# file system that is mounted only for this process and its children. Exits with 77 if mounting is
# not permitted.
unshare --mount true 2>/dev/null || exit 77
folder=$(mktemp -d) || exit 1
trap 'rmdir "$folder"' EXIT
unshare --mount sh -c '
  mount -t tmpfs -o size=64k,nr_inodes=10 tmpfs "$1" || exit 77
  cd "$1" && "$2" full_file_system && mount -o remount,ro "$1" && "$2" read_only_file_system
' - "$folder" "$1"
