#!/bin/bash
# check-imports.sh OBJDUMP PROGRAM... : fails when a Windows program imports a DLL that is not part
# of Windows itself.
set -euo pipefail

objdump=$1
shift
system='(kernel32|msvcrt|advapi32|shell32|user32|ws2_32|ntdll|shlwapi|dbghelp)\.dll'

for program in "$@"; do
    imports=$("$objdump" -p "$program" | sed -n 's/^\s*DLL Name: //p')
    if [[ -z $imports ]]; then
        echo "$program: no import table found"
        exit 1
    fi
    if grep -viE "^$system$" <<<"$imports"; then
        echo "$program: the DLLs above are not part of Windows"
        exit 1
    fi
done
