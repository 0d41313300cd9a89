#!/usr/bin/env bash
# Builds the project and runs its tests, on a machine as it comes.
#
#   ./test.sh [--preset NAME] [CTEST-ARGUMENT ...]
#
#   --preset NAME   debug (the default), release, asan or tsan; built in build/NAME
#
# Everything else goes to CTest: ./test.sh -R journal runs the tests with "journal" in their names.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"
source tools/lib.sh
log_directory=$PWD/build/logs

preset=debug
while [[ $# -gt 0 ]]; do
    case $1 in
        --preset)
            [[ $# -ge 2 ]] || fail "--preset needs a name"
            preset=$2
            shift 2
            ;;
        --preset=*)
            preset=${1#*=}
            shift
            ;;
        *) break ;;
    esac
done

tools/install-packages build test
build_preset "$preset"
ctest --preset "$preset" --parallel "$(nproc)" "$@"
