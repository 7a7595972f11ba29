# Sourced by the shell tests: check NAME CONDITION runs the condition in a
# subshell and counts it; on failure it shows the condition's output and
# $work/stderr (where the tests send the tool's). checks_done ends the run.
passed=0
failed=0
check() {
  if (eval "$2") >"$work/out" 2>&1; then
    passed=$((passed + 1))
    echo "ok: $1"
  else
    failed=$((failed + 1))
    echo "FAILED: $1"
    sed 's/^/    /' "$work/out" "$work/stderr"
  fi
}
checks_done() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
