#!/usr/bin/env bash
# The PCAP files the Diagnostics page exported under Wine (one per language), decoded by tshark on
# the native side: an FC06 write of 1234 to register 5, then two FC03 reads of registers 5 and 6,
# each request with its response, as Modbus/TCP on port 1502.
set -u
folder=$1
status=0
for lang in en de; do
  file="$folder/$lang-capture.pcap"
  if [ ! -s "$file" ]; then
    echo "missing: $file"
    status=1
    continue
  fi
  decoded=$(tshark -r "$file" -o mbtcp.tcp.port:1502 -Y mbtcp -T fields -e mbtcp.unit_id -e modbus.func_code \
    -e modbus.reference_num -e modbus.word_cnt -e modbus.regval_uint16 2>/dev/null)
  expected=$(printf '1\t6\t5\t\t\n1\t6\t5\t\t\n1\t3\t5\t2\t\n1\t3\t\t\t1234,0\n1\t3\t5\t2\t\n1\t3\t\t\t1234,0')
  if [ "$decoded" != "$expected" ]; then
    echo "$file decoded as:"
    echo "$decoded"
    status=1
  else
    echo "$file: 6 Modbus/TCP packets as expected"
  fi
done
exit $status
