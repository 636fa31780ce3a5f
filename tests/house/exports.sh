#!/usr/bin/env bash
# Fails when the library exports a symbol that is not in namespace qv. Sanitizers put names of their own
# into what they build.
# usage: exports.sh LIBRARY
set -euo pipefail
symbols=$(nm -DC --defined-only "$1" | cut -d' ' -f3-)
grep -qE '^qv::' <<<"$symbols"
! grep -vE '^(((typeinfo|typeinfo name|vtable) for )?qv::|__|_(init|fini|edata|end)$)' <<<"$symbols"
