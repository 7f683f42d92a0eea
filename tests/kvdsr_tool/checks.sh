# Shared by the tool's shell tests (sourced): failure counting and a run of
# the tool checked for its exit code and an output pattern.
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# run NAME EXPECTED_EXIT PATTERN ARGS...: exit code (never a signal) and a
# stderr/stdout match.
run() {
  local name=$1 want=$2 pattern=$3
  shift 3
  "$KVDSR" "$@" >"$name.out" 2>"$name.err" </dev/null
  local rc=$?
  if [ "$rc" -ge 128 ]; then
    fail "$name: killed by signal $((rc - 128))"
    cat "$name.err"
    return
  fi
  if [ "$rc" != "$want" ]; then
    fail "$name: exit $rc, wanted $want"
    cat "$name.err"
    return
  fi
  if [ -n "$pattern" ] && ! grep -q -- "$pattern" "$name.out" "$name.err"; then
    fail "$name: output lacks '$pattern'"
    cat "$name.out" "$name.err"
  fi
}

# finish WHAT: the summary line and the exit status.
finish() {
  if [ "$failures" != 0 ]; then
    echo "$failures check(s) failed"
    exit 1
  fi
  echo "all $1 checks passed"
}
