#!/usr/bin/env bash
# Decodes traffic with tools/wireshark/unity.lua in tshark and checks the decoded
# fields: captures recorded by `plcsim --pcap` while panelhost drives the driver
# (identification, a paged dictionary download, mixed reads and writes), and a
# real controller's identification traffic.
# Usage: tests/wireshark/test_dissector.sh [BUILD_DIR]   (default: build/dev)
# Binds 127.0.0.x:502: run it as root or it re-runs itself in a private network namespace.
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$root/build/dev}" && pwd)

if [ "$(id -u)" -ne 0 ] && [ -z "${WIRE_IN_NAMESPACE:-}" ]; then
  exec unshare -rn env WIRE_IN_NAMESPACE=1 sh -c 'ip link set lo up && exec "$0" "$1"' "$0" "$build"
fi
command -v tshark >/dev/null || { echo "tshark is missing (scripts/install-deps.sh installs it)"; exit 1; }

lua=$root/tools/wireshark/unity.lua
plcsim=$build/tools/plcsim/plcsim
panelhost=$build/tools/host/panelhost
real=$root/tests/wireshark/captures/controller-identification.pcap
work=$(mktemp -d)
sim=""
stop_sim() {
  [ -n "$sim" ] || return 0
  kill "$sim" 2>/dev/null || true
  wait "$sim" 2>/dev/null || true
  sim=""
}
# WIRE_KEEP=DIR keeps the recorded captures there for a look in Wireshark.
keep() { [ -z "${WIRE_KEEP:-}" ] || cp "$work"/*.pcap "$WIRE_KEEP"/ 2>/dev/null || true; }
trap 'stop_sim; keep; rm -rf "$work"' EXIT
started=$(date +%s)

passed=0
failed=0
expect() { # NAME EXPECTED ACTUAL
  if [ "$2" == "$3" ]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    printf 'FAIL %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
  fi
}

# Decoded fields of the packets that match FILTER: one packet a line, fields
# separated by "|", the values of a repeated field by ";".
fields() { # CAPTURE FILTER FIELD...
  local cap=$1 filter=$2 args=()
  shift 2
  for f in "$@"; do args+=(-e "$f"); done
  timeout 60 tshark -r "$cap" -X lua_script:"$lua" -Y "$filter" -T fields -E separator='|' \
    -E aggregator=';' "${args[@]}" 2>>"$work/tshark.err"
}
# The same, one record a line: the i-th values of every field together.
records() {
  fields "$@" | awk -F'|' '{
    n = split($1, first, ";")
    for (i = 1; i <= n; i++) {
      line = first[i]
      for (k = 2; k <= NF; k++) { split($k, col, ";"); line = line "|" col[i] }
      print line
    }
  }'
}
joined() { awk 'NR > 1 { printf ", " } { printf "%s", $0 } END { print "" }'; }

# Serves PROJECT on a free 127.0.0.x:502 while recording into CAPTURE; sets $plc.
start_sim() { # PROJECT CAPTURE
  local first=$((RANDOM % 200 + 20))
  for x in $(seq "$first" $((first + 30))); do
    plc=127.0.0.$x
    "$plcsim" --project "$1" --listen "$plc:502" --pcap "$2" >"$work/sim.log" 2>&1 &
    sim=$!
    for _ in $(seq 50); do
      grep -q listening "$work/sim.log" && return 0
      kill -0 "$sim" 2>/dev/null || break
      sleep 0.1
    done
    stop_sim
  done
  echo "plcsim did not start: $(cat "$work/sim.log")"
  exit 1
}

# One retry: on a loaded machine the driver's 100 ms connect time-out can pass.
host() {
  timeout 60 "$panelhost" "$@" --plc "$plc" >"$work/host.log" 2>&1 ||
    timeout 60 "$panelhost" "$@" --plc "$plc" >"$work/host.log" 2>&1 ||
    { echo "panelhost $* failed:"; tail -20 "$work/host.log"; exit 1; }
}

# Nothing the dissector or Wireshark flags: malformed packets, Lua errors, short
# Unity messages, values that do not fit their request, TCP sequence trouble.
expect_clean() { # NAME CAPTURE [EXTRA FILTER]
  local bad="_ws.malformed || _ws.expert.message contains \"Lua\" || unity.short || unity.internal"
  bad="$bad || unity.values_mismatch${3:+ || $3}"
  expect "$1: flagged packets" "" "$(fields "$2" "$bad" frame.number | joined)"
}

# --- The example plant: identification, dictionary, mixed reads and writes ---
plant=$work/plant.pcap
start_sim "$root/examples/plant.json" "$plant"
host browse
host read --list "$root/examples/plant_tags.txt"
host write --list "$root/examples/plant_tags.txt" Counter=-1234 Motor1.Speed=99.5 Name=HELLO
stop_sim

expect_clean plant "$plant" "unity.unmatched || tcp.analysis.flags"
expect "identification: type text" "12|BMX P34 2020" \
  "$(records "$plant" unity.plc.type unity.plc.type_length unity.plc.type | sort -u | joined)"
expect "identification: handle read from block 0x30" "0x89abcdef|0x01234567" \
  "$(records "$plant" unity.dict.handle_high unity.dict.handle unity.dict.handle_high | sort -u | joined)"
expect "dictionary requests carry the handle" "0x89abcdef" \
  "$(fields "$plant" 'unity.function == 0x26 && !unity.request_frame' unity.dict.handle | sort -u | joined)"
expect "data type list" "100|MOTOR, 101|ARRAY[0..3] OF MOTOR, 102|STRING[16], \
103|ARRAY[0..15] OF BOOL, 104|ARRAY[0..7] OF EBOOL, 105|ARRAY[0..9] OF INT" \
  "$(records "$plant" unity.type.name unity.type.id unity.type.name | sort -u | joined)"
expect "structure detail of MOTOR" "Speed|8|0, Current|8|4, Running|25|8, Mode|4|10, Starts|7|12" \
  "$(records "$plant" unity.member.name unity.member.name unity.member.type_id unity.member.offset |
    awk '!seen[$0]++' | joined)"
expect "array details" "100|0|3, 1|0|15, 25|0|7, 4|0|9" \
  "$(records "$plant" unity.array.element_type unity.array.element_type unity.array.low \
    unity.array.high | sort -u | joined)"
err_req=$(fields "$plant" 'unity.status == 0xfd' unity.request_frame | head -1)
expect "error reply answers the STRING[16] detail" "102" \
  "$(fields "$plant" "frame.number == ${err_req:-0}" unity.dict.type_id)"
expect "the STRING detail's error replies are expected, none other" "$(fields "$plant" 'unity.status == 0xfd' frame.number | joined)|" \
  "$(fields "$plant" 'unity.error_expected' frame.number | joined)|$(fields "$plant" unity.error_reply frame.number | joined)"
expect "variables table records" "Motor1|100|1|0, Counter|4|1|96, Name|102|1|160" \
  "$(records "$plant" unity.var.name unity.var.name unity.var.type_id unity.var.block unity.var.offset |
    grep -E '^(Counter|Name|Motor1)\|' | sort -u | sort -t'|' -k4n -k1 | joined)"
# A read reply splits into exactly as many values as its request has items.
fields "$plant" 'unity.function == 0x22 && !unity.request_frame' frame.number unity.item_count >"$work/reads"
expect "read replies: one value per request item" "" \
  "$(fields "$plant" 'unity.function == 0x22 && unity.request_frame && !unity.table_address' \
    unity.request_frame unity.item.value | awk -F'|' 'NR == FNR { want[$1] = $2; next }
      { got = split($2, v, ";")
        if (want[$1] != got) print "frame " $1 ": " want[$1] " items, " got " values" }' \
    "$work/reads" - | joined)"
expect "file-handle reply gives the table address" "0x12345678" \
  "$(fields "$plant" 'unity.function == 0x22 && unity.request_frame && unity.table_address' unity.table_address |
    sort -u | joined)"
expect "writes: code, block, address, value" \
  "0x02|1|0x00000060|2efb, 0x03|1|0x00000000|0000c742, 0x11|1|0x000000a0|48454c4c4f0000000000000000000000" \
  "$(records "$plant" 'unity.function == 0x23 && !unity.request_frame' unity.item.code \
    unity.item.block unity.item.address unity.item.value | joined)"
expect "write replies" "1, 1, 1" \
  "$(fields "$plant" 'unity.function == 0x23 && unity.request_frame' unity.write_result | joined)"
readback=$(fields "$plant" 'unity.function == 0x22 && !unity.request_frame' frame.number | tail -1)
expect "read-back request items" "0x02|1|0x00000060, 0x03|1|0x00000000, 0x11|1|0x000000a0" \
  "$(records "$plant" "frame.number == $readback" unity.item.code unity.item.block \
    unity.item.address | joined)"
expect "read-back values split per item" "2efb, 0000c742, 48454c4c4f0000000000000000000000" \
  "$(records "$plant" "unity.request_frame == $readback" unity.item.value | joined)"
# Items name the variable the driver's own dictionary download placed at their address.
expect "read-back items name their variables" "Counter, Motor1, Name" \
  "$(records "$plant" "frame.number == $readback" unity.item.variable | joined)"
expect "write items name their variables" "Counter, Motor1, Name" \
  "$(records "$plant" 'unity.function == 0x23 && !unity.request_frame' unity.item.variable | joined)"
expect "a member's item names its variable and offset" "Line+32" \
  "$(records "$plant" 'unity.item.address == 64' unity.item.address unity.item.variable |
    awk -F'|' '$1 == "0x00000040" { print $2 }' | sort -u)"

# --- A generated project whose variables table, type list and widest structure page ---
paged=$work/paged.pcap
"$plcsim" --generate 400 100 --out "$work/paged.json"
start_sim "$work/paged.json" "$paged"
host browse
printf '%s\n' Var_000375:INT Var_000378:REAL >"$work/paged_tags.txt"
host read --list "$work/paged_tags.txt"
stop_sim

expect_clean paged "$paged" "unity.unmatched || tcp.analysis.flags"
# Each page's request continues where the previous reply said; the last reply says 0.
pages() { # FILTER REQUEST_FIELD REPLY_FIELD
  paste -d'|' <(fields "$paged" "tcp.stream == 0 && ($1) && !unity.request_frame" "$2") \
    <(fields "$paged" "tcp.stream == 0 && ($1) && unity.request_frame" "$3") |
    awk -F'|' 'NR > 1 && $1 != next_from { print "page " NR " starts at " $1 " not " next_from }
               { next_from = $2; n++ } END { print n " pages, last next " next_from }'
}
expect "data type list pages" "2 pages, last next 0x00000000" \
  "$(pages 'unity.dict.list == 3' unity.dict.continuation unity.dict.continuation)"
expect "data type list records" "117" "$(records "$paged" 'unity.dict.list == 3' unity.type.id | sort -u | wc -l)"
expect "variables table pages" "5 pages, last next 0" \
  "$(pages 'unity.dict.type_id == 0xffff' unity.dict.browse_address unity.dict.next)"
expect "variables table records" "400" \
  "$(records "$paged" 'unity.dict.type_id == 0xffff' unity.var.name | sort -u | wc -l)"
expect "widest structure pages" "4 pages, last next 0" \
  "$(pages 'unity.dict.type_id == 100' unity.dict.member_start unity.dict.next_member)"
expect "widest structure pages share one transaction id" "1" \
  "$(fields "$paged" 'unity.dict.type_id == 100' mbtcp.trans_id | sort -u | wc -l)"
expect "widest structure members" "300" \
  "$(records "$paged" 'unity.dict.type_id == 100' unity.member.name | sort -u | wc -l)"
# Far into the block, every byte of a read item's address counts.
expect "read items address the variables' table entries" \
  "$(records "$paged" 'unity.var.name == "Var_000375" || unity.var.name == "Var_000378"' unity.var.name \
    unity.var.block unity.var.offset | grep -E '^Var_0003(75|78)\|' |
    awk -F'|' '{ printf "%s|0x%08x\n", $2, $3 }' | sort -u | joined)" \
  "$(records "$paged" 'unity.function == 0x22 && !unity.request_frame && !unity.item.address == 0x000000' \
    unity.item.block unity.item.address | sort -u | joined)"

# --- Hostile messages: cut or inconsistent, each must decode without a Lua error ---
# Rows: transaction id, I (request) or O (reply), Unity message, whether it ends inside a field.
hostile=$work/hostile.pcap
cat >"$work/hostile.rows" <<'ROWS'
1 I 00.22.78563412.05.02.0100.01.6000.00 yes
1 O 00.fe.2efb00 no
2 I 00.26.02.fb03.efcdab89.ffff.00000000 no
2 O 00.fe.09.00000000.0200.0400.0100.60000000.0000.436f756e746572 yes
3 I 00.02 no
3 O 00.fe.10ff yes
4 I 00.99.0102 no
4 O 00.fe.0a0b no
5 I 00 yes
6 I 00.26.03.fb03.efcdab89.00000000 no
6 O 00.fe.00000000.0a00.0000000000.6400.4d4f yes
7 I 00.26.02.fb03.efcdab89.6400.0000.0000 no
7 O 00.fe.02.0000.0000.0100.0800.00000000.000000 yes
8 O 00.fd.07 no
9 I 00.26.02.fb03.efcdab89.6500.0000.0000 no
9 O 00.fe.04.6400.05.00000000 yes
ROWS
# One frame a row, in text2pcap's hex dump form behind a Modbus/TCP header.
while read -r tid dir msg _; do
  m=${msg//./}
  len=$((${#m} / 2 + 2))
  printf '%s\n0000 %02x %02x 00 00 %02x %02x 00 5a %s\n' "$dir" $((tid >> 8)) $((tid & 255)) \
    $((len >> 8)) $((len & 255)) "$(sed 's/../& /g' <<<"$m")"
done <"$work/hostile.rows" >"$work/hostile.txt"
timeout 60 text2pcap -q -D -T 40000,502 "$work/hostile.txt" "$hostile" >/dev/null 2>&1
expect "hostile: no Lua error" "" \
  "$(fields "$hostile" 'unity.internal || _ws.expert.message contains "Lua"' frame.number)"
expect "hostile: messages that end inside a field" \
  "$(awk '$4 == "yes" { print NR }' "$work/hostile.rows" | joined)" \
  "$(fields "$hostile" unity.short frame.number | joined)"
expect "hostile: values that do not fit the request" "2" \
  "$(fields "$hostile" unity.values_mismatch frame.number)"
expect "hostile: an error reply without its request is a real one" \
  "$(awk '$3 ~ /^00\.fd/ { print NR }' "$work/hostile.rows")" \
  "$(fields "$hostile" unity.error_reply frame.number)"
expect "hostile: unknown function keeps its bytes" "0102" \
  "$(fields "$hostile" 'unity.function == 0x99' unity.params)"

# --- A real controller's identification traffic ---
expect_clean "real capture" "$real"
expect "real: every request and reply decoded" "90|90" \
  "$(fields "$real" 'unity && !unity.request_frame' frame.number | wc -l)|$(
    fields "$real" 'unity.request_frame' frame.number | wc -l)"
expect "real: every reply has status OK" "90" "$(fields "$real" 'unity.status == 0xfe' frame.number | wc -l)"
expect "real: identification replies" \
  "0x00|0xfe|10ff5a01010000007002000027000900080000000000|14|140 CPU 311 10|010101000000001100" \
  "$(fields "$real" unity.plc.type unity.pairing unity.status unity.plc.id_bytes unity.plc.type_length \
    unity.plc.type unity.plc.id_tail | sort -u | joined)"
expect "real: identification requests" "2" \
  "$(fields "$real" 'unity.function == 0x02 && !unity.request_frame' frame.number | wc -l)"
expect "real: memory block request and reply" "0x00|0x0013|0x00000000|100|100" \
  "$(paste -d'|' \
    <(fields "$real" 'frame.number == 25' unity.mem.range unity.mem.block unity.mem.offset unity.mem.size) \
    <(fields "$real" 'frame.number == 26' unity.mem.size))"
expect "real: unknown functions keep their bytes" "0x58|07018000000000fb00" \
  "$(fields "$real" 'frame.number == 70' unity.function unity.params)"
# Only errors count: tshark's warning about running as root reaches the shared file in
# pieces when several tshark runs write at once.
expect "tshark reported no Lua error" "" "$(grep -i -e lua -e error "$work/tshark.err" | joined)"

echo "dissector checks took $(($(date +%s) - started)) s"
echo "wireshark: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
