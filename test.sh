#!/usr/bin/env bash
# Builds the project and runs its tests; installs what is missing for that.
#
#   ./test.sh [--preset NAME | --coverage] [CTEST-ARGUMENT ...]
#
#   --preset NAME   debug (the default), release, asan, tsan or fuzz; built in build/NAME
#   --coverage      prints which lines of the agent the tests run; built in build/coverage
#
# Everything else goes to CTest: ./test.sh -R journal runs the tests with "journal" in their names. Without
# any argument it also fuzzes for twenty seconds, where clang is installed.
set -euo pipefail
source "$(dirname -- "${BASH_SOURCE[0]}")/dev/lib.sh"
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

# clang with its fuzzer library, which is a package of its own.
can_fuzz() {
    clang++ -fsanitize=fuzzer -x c++ - -o /dev/null 2>/dev/null \
        <<<'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }'
}

# CTest names what is skipped; the reasons are in its log.
why_skipped() {
    awk 'skipped { ++count[$0] }
        { skipped = /: Skipped$/ }
        END { for (reason in count) printf "Skipped, %d: %s\n", count[reason], reason }' "$1"
}

[[ $# -gt 0 ]] && fuzz_too=false || fuzz_too=true
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
        --coverage)
            preset=coverage
            shift
            ;;
        *) break ;;
    esac
done

dev/install-packages build test
check_device_root "tests that mount are skipped, no leaks are looked for"
targets=()
case $preset in
    fuzz)
        can_fuzz || fail "fuzzing needs clang with its fuzzer library: dev/install-packages check"
        targets=(fuzz_targets)
        ;;
    coverage) dev/install-packages check ;;
esac
build_preset "$preset" "${targets[@]}"
if $fuzz_too && can_fuzz; then
    build_preset fuzz fuzz_targets
    step "Fuzz for twenty seconds" ctest --preset fuzz
elif $fuzz_too; then
    printf 'No fuzzing: clang or its fuzzer library is not installed (dev/install-packages check)\n'
fi

# What an earlier run counted is no part of this one.
[[ $preset != coverage ]] || find build/coverage -name '*.gcda' -delete
status=0
ctest --preset "$preset" --parallel "$(nproc)" "$@" || status=$?
why_skipped "build/$preset/Testing/Temporary/LastTest.log"
[[ $preset != coverage ]] || dev/coverage build/coverage
exit "$status"
