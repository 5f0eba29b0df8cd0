# shellcheck shell=bash
# Sourced by the example runners: start_sim PLCSIM PROJECT LOG starts the simulator on the
# first free loopback address of 127.0.0.201..220 (tests running alongside take addresses
# too) and sets sim_address and sim_pid; it fails when none could listen.
start_sim() {
  local plcsim=$1 project=$2 log=$3 x
  sim_pid=""
  for x in $(seq 201 220); do
    sim_address=127.0.0.$x
    "$plcsim" --project "$project" --listen "$sim_address:502" >"$log" 2>&1 &
    sim_pid=$!
    for _ in $(seq 50); do
      grep -q listening "$log" && return 0
      kill -0 "$sim_pid" 2>/dev/null || break
      sleep 0.1
    done
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
  done
  echo "no simulator could listen" >&2
  cat "$log" >&2
  return 1
}
