#!/bin/sh
# tools/check_commits.sh [BASE]: checks the messages of the commits that BASE (default: origin/main) does
# not have. A subject has at most 72 characters and begins with the family and a colon; a body says why.
set -eu

base=${1-origin/main}
git rev-parse --quiet --verify "$base" > /dev/null || exit 0  # a clone without a remote

status=0
for commit in $(git rev-list --no-merges "$base..HEAD"); do
  subject=$(git log -1 --format=%s "$commit")
  reason=
  printf '%s\n' "$subject" | grep -qE '^[a-z][a-z_, -]*: [^ ]' || reason="no family in front"
  [ "$(printf %s "$subject" | wc -m)" -le 72 ] || reason="longer than 72 characters"
  [ -n "$(git log -1 --format=%b "$commit")" ] || reason="no body"
  [ -z "$reason" ] || { echo "$(git rev-parse --short "$commit"): $subject: $reason" >&2; status=1; }
done
exit $status
