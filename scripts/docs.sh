#!/usr/bin/env bash
# Builds the documentation as a site in build/site, with mkdocs; a link that leads nowhere is an error.
#
#   scripts/docs.sh [--serve]     --serve: shows it at http://127.0.0.1:8000 and follows changes
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh docs
if [ "${1:-}" = --serve ]; then
    exec mkdocs serve
fi
mkdocs build --quiet --strict --clean --site-dir build/site
echo "docs: build/site/index.html, $(find build/site -name '*.html' | wc -l) pages"
