#!/usr/bin/env bash
# kestrel-cli with "°C" and "Größe" in its arguments and in its structures file prints the same
# UTF-8 bytes wherever it runs: natively, and as kestrel-cli.exe under Wine through a pipe (both
# builds run this script, which checks for the exact bytes, "\n" line ends included). Covers
# decode, structures list/show/import-csv/export-csv, and poll against a slave started by the same
# program.
#   utf8_command_line.sh PROGRAM...   e.g. build/linux/src/cli/kestrel-cli
#                                     or   tools/wine-run.sh build/windows/src/cli/kestrel-cli.exe
set -u
export LC_ALL=C.UTF-8  # Wine takes the arguments from the locale's encoding
cli=("$@")
work=$(mktemp -d)
slave_pid=""
cleanup() {
  if [ -n "$slave_pid" ]; then
    # Under Wine the slave is a child of the runner script; stop it, then the runner.
    for child in $(ps -o pid= --ppid "$slave_pid" 2>/dev/null); do kill "$child" 2>/dev/null; done
    kill "$slave_pid" 2>/dev/null
    wait "$slave_pid" 2>/dev/null
  fi
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work" || exit 1
status=0

# expect NAME EXPECTED_STDOUT EXPECTED_STDERR PROGRAM_ARGS...: runs the program with stdout and
# stderr in files and compares both byte for byte.
expect() {
  local name=$1 out=$2 err=$3
  shift 3
  printf '%s' "$out" >"$name.expected.out"
  printf '%s' "$err" >"$name.expected.err"
  timeout 60 "${cli[@]}" "$@" >"$name.out" 2>"$name.err" </dev/null
  local code=$?
  if [ $code -ne 0 ]; then echo "$name: exit status $code"; status=1; fi
  for stream in out err; do
    if [ "$stream" = err ] && [ "$err" = "-" ]; then continue; fi
    if ! cmp -s "$name.expected.$stream" "$name.$stream"; then
      echo "$name: std$stream differs; expected, then got:"
      od -c "$name.expected.$stream" | head -20
      od -c "$name.$stream" | head -20
      status=1
    fi
  done
}

expect decode $'20.000 \u00b0C\n' '' --lang en decode --type UINT16 --scale 0.1 --offset -50 --unit °C 700

# A slave of the same program serves the registers the structure reads.
"${cli[@]}" slave --tcp-port 0 --holding 0=700,1234 --duration 60 >slave.out 2>slave.err </dev/null &
slave_pid=$!
port=""
for _ in $(seq 1 300); do
  port=$(sed -n 's/^kestrel-cli: slave listening on port \([0-9]*\).*/\1/p' slave.err | tr -d '\r')
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || { echo "the slave did not start:"; cat slave.err; exit 1; }

detail() {  # id name unit address scale offset
  cat <<EOF
        {
          "id": $1,
          "name": "$2",
          "unit": "$3",
          "dataType": "UINT16",
          "arraySize": 1,
          "registerAddress": $4,
          "functionCode": 3,
          "byteOrder": "BIG_ENDIAN",
          "scale": $5,
          "offset": $6,
          "warnLow": 0,
          "warnHigh": 0,
          "alarmLow": 0,
          "alarmHigh": 0,
          "alarmOnChange": false,
          "widgetType": "AUTO"
        }
EOF
}
{
  printf '{\n  "structures": [\n    {\n      "id": 1,\n      "name": "Größe",\n'
  printf '      "description": "Kühlwasser, Vorlauf",\n      "ip": "127.0.0.1",\n      "port": %s,\n' "$port"
  printf '      "unitId": 1,\n      "rtuOverTcp": false,\n      "details": [\n'
  detail 1 Temperatur "°C" 0 0.1 -50
  printf ',\n'
  detail 2 Größe mm 1 1 0
  printf '      ]\n    }\n  ]\n}\n'
} >Größe.json

expect list "1  Größe  127.0.0.1:$port  Unit-ID 1  2 Details"$'\n' '' --lang en structures --file Größe.json list
expect show "id: 1
name: Größe
description: Kühlwasser, Vorlauf
ip: 127.0.0.1
port: $port
unitId: 1
rtuOverTcp: false
details: 2
  1  name=\"Temperatur\" unit=\"°C\" dataType=UINT16 arraySize=1 registerAddress=0 functionCode=3 byteOrder=BIG_ENDIAN scale=0.1 offset=-50 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=false widgetType=AUTO
  2  name=\"Größe\" unit=\"mm\" dataType=UINT16 arraySize=1 registerAddress=1 functionCode=3 byteOrder=BIG_ENDIAN scale=1 offset=0 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=false widgetType=AUTO
" '' --lang en structures --file Größe.json show 1
# The structure is found by the name typed on the command line; the log (with the port) goes to
# stderr and is not compared.
expect poll $'Temperatur: 20.000 \u00b0C\nGröße: 1234 mm\n' - \
  --lang en poll --file Größe.json --name Größe --cycles 1 --interval 100 --record Größe.csv --pcap Größe.pcap
# The recording and the capture are written under the names typed (the CSV without its time stamps).
recorded=$(cut -d';' -f2- Größe.csv 2>/dev/null)
expected=$'Name;RawValue;DisplayValue;Unit\r\nTemperatur;700.000000;20.000 \u00b0C;\u00b0C\r\nGröße;1234.000000;1234 mm;mm\r'
[ "$recorded" = "$expected" ] || { echo "Größe.csv holds:"; od -c Größe.csv | head -20; ls; status=1; }
[ "$(head -c 4 Größe.pcap 2>/dev/null | od -An -tx1 | tr -d ' ')" = d4c3b2a1 ] || { echo "no capture Größe.pcap"; ls; status=1; }

# A register map with the same words becomes a second structure, named on the command line; it
# shows, exports and polls with the same bytes.
printf 'name,address,data_type,unit,scale,offset\nTemperatur,0,UINT16,°C,0.1,-50\nGröße,1,UINT16,mm,1,0\n' \
  >Kühlwasser.csv
expect import "Added structure 2 \"Größe Süd\" with 2 details to Größe.json."$'\n' '' \
  --lang en structures --file Größe.json import-csv Kühlwasser.csv --name "Größe Süd" --ip 127.0.0.1 --port "$port"
expect show-imported "id: 2
name: Größe Süd
description: 
ip: 127.0.0.1
port: $port
unitId: 1
rtuOverTcp: false
details: 2
  3  name=\"Temperatur\" unit=\"°C\" dataType=UINT16 arraySize=1 registerAddress=0 functionCode=3 byteOrder=BIG_ENDIAN scale=0.1 offset=-50 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=false widgetType=AUTO
  4  name=\"Größe\" unit=\"mm\" dataType=UINT16 arraySize=1 registerAddress=1 functionCode=3 byteOrder=BIG_ENDIAN scale=1 offset=0 warnLow=0 warnHigh=0 alarmLow=0 alarmHigh=0 alarmOnChange=false widgetType=AUTO
" '' --lang en structures --file Größe.json show 2
expect export "name,function_code,address,data_type,byte_order,array_size,scale,offset,unit,warn_low,warn_high,alarm_low,alarm_high,alarm_on_change
Temperatur,3,0,UINT16,BIG_ENDIAN,1,0.1,-50,°C,0,0,0,0,false
Größe,3,1,UINT16,BIG_ENDIAN,1,1,0,mm,0,0,0,0,false
" '' --lang en structures --file Größe.json export-csv 2
expect poll-imported $'Temperatur: 20.000 \u00b0C\nGröße: 1234 mm\n' - \
  --lang en poll --file Größe.json --name "Größe Süd" --cycles 1 --interval 100

# On a console the text shows as the characters it encodes. `script` gives the program a terminal;
# under Wine that makes a Windows console, which draws its screen onto the terminal with cursor
# moves (a skipped cell is a cursor step right, kept as a space here).
on_console() {  # NAME EXPECTED PROGRAM_ARGS...
  local name=$1 expected=$2 command shown
  shift 2
  printf -v command '%q ' timeout 60 "${cli[@]}" "$@"
  shown=$(script -qec "$command" /dev/null </dev/null |
    perl -pe 's/\e\[(\d*)C/" " x ($1 || 1)/ge; s/\e\[[?0-9;]*[a-zA-Z]//g; s/\r//g')
  if [ "$shown" != "$expected" ]; then
    echo "$name on a console: expected, then got:"
    printf '%s\n' "$expected" | od -c | head -10
    printf '%s\n' "$shown" | od -c | head -10
    status=1
  fi
}
on_console decode-console $'20.000 \u00b0C' --lang en decode --type UINT16 --scale 0.1 --offset -50 --unit °C 700
on_console list-console "1  Größe  127.0.0.1:$port  Unit-ID 1  2 Details
2  Größe Süd  127.0.0.1:$port  Unit-ID 1  2 Details" --lang en structures --file Größe.json list
on_console error-console "kestrel-cli: Größe.json: keine Struktur mit der Id 7" \
  --lang de structures --file Größe.json show 7

[ $status -eq 0 ] && echo "decode, structures list/show/import-csv/export-csv and poll: the expected UTF-8 bytes, to a pipe and a console"
exit $status
