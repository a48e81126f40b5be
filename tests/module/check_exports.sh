#!/usr/bin/env bash
# Checks the binary interface of a built module: its exported symbols and the
# libraries it needs.
set -u
module=$1
status=0
exports=$(nm -D --defined-only "$module" | awk '{print $3}' | sort | tr '\n' ' ')
if [ "$exports" != "CreateFunction GLOBALComponents InitializeModule " ]; then
  echo "unexpected exports: $exports"
  status=1
fi
allowed='^(libc\.so\.6|libstdc\+\+\.so\.6|libm\.so\.6|libgcc_s\.so\.1|libdl\.so\.2|libpthread\.so\.0)$'
for lib in $(readelf -d "$module" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p'); do
  if ! [[ $lib =~ $allowed ]]; then
    echo "unexpected library needed: $lib"
    status=1
  fi
done
[ $status -eq 0 ] && echo "exports and needed libraries as expected"
exit $status
