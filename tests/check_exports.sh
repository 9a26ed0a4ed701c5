#!/bin/sh
# The module's dynamic symbol table defines exactly one symbol: xqPluginCall.
set -eu
module="$1"
defined=$(nm -D --defined-only "$module" | awk '{print $NF}' | sort)
if [ "$defined" != "xqPluginCall" ]; then
    echo "expected only xqPluginCall to be exported from $module, got:" >&2
    echo "$defined" >&2
    exit 1
fi
# It is a function with C linkage (no mangling) and default visibility.
nm -D --defined-only "$module" | grep -q ' T xqPluginCall$'
echo "ok: $module exports only xqPluginCall"
