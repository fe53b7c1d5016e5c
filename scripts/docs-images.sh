#!/usr/bin/env bash
# Rewrites the pictures the documentation shows, docs/images/*.png, from a fresh run of
# `qpx demo`: every picture a page under docs/ shows (an <img> whose source is in
# docs/images/) is copied from the demo's output. cli_test fails when a committed picture
# differs from what the demo writes, so run this when a method's output changes on purpose.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh build -- qpx qpxplugin
demo=$(mktemp -d)
trap 'rm -rf "$demo"' EXIT
build/bin/qpx demo "$demo" >/dev/null
mkdir -p docs/images
rm -f docs/images/*.png
grep -rhoE 'src="(\.\./)*images/[^"]+\.png"' docs | sed -E 's/.*images\/([^"]+)"/\1/' | sort -u |
  while read -r name; do cp "$demo/$name" docs/images/"$name"; done
ls docs/images | wc -l | xargs echo "pictures written to docs/images:"
