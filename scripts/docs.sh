#!/usr/bin/env bash
# Builds the documentation as a site in build/site, with mkdocs. A link or picture that leads nowhere, into another page
# or a heading of one, is an error.
#
#   scripts/docs.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/bootstrap.sh docs

# Pages in the places that they have in the source tree, with what they link to.
pages=build/site-pages
rm -rf "$pages"
mkdir -p "$pages"
git ls-files -z --cached --others --exclude-standard -- '*.md' docs examples LICENSE 'include/*.h' 'tests/install/*.cpp' 'scripts/*.sh' pipeline.schema.json |
    xargs -0 cp --parents -t "$pages"
mkdocs build --quiet --strict --clean
scripts/check_links.py build/site
