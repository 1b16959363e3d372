# Two batteries of the kernel's own drivers that come without firmware: test_power, which tells each change, and a
# Smart Battery on a bus that is played, which tells none. Unplugged, emptied, asleep in between, plugged, filled.
# waits for minutes
source ./checks.sh
export device_key=Id
parameters=/sys/module/test_power/parameters
smart=sbs-0-000b
set_power() { echo "$2" >"$parameters/$1"; }  # PARAMETER VALUE
plug() {  # on|off
  set_power ac_online "$1"
  set_power usb_online "$1"
}
# A register of the Smart Battery (Smart Battery Data Specification 1.1); by force, since the driver holds its address.
set_register() { i2cset -f -y "${bus##*-}" 0x0b "$1" "$2" w; }
event() { items BatteryEvent "$1" "$2"; }  # ITEM ID
facts() { jq -c "[$1]" <<<"$2"; }

modprobe -a test_power i2c-dev
modprobe i2c-stub chip_addr=0x0b
modprobe sbs-battery force_load=1
for bus in /sys/bus/i2c/devices/i2c-*; do
  [[ $(<"$bus/name") != *stub* ]] || break
done
# Voltage, current, percentage, what remains, what it holds (10 mWh), state, cycles, design, its voltage, date, number.
for register in "0x09 11900" "0x0a 64736" "0x0d 57" "0x0f 2337" "0x10 4100" "0x16 192" "0x17 312" "0x18 5000" \
  "0x19 11400" "0x1a 49" "0x1b 22898" "0x1c 51966"; do
  set_register ${register% *} ${register#* }
done
echo sbs-battery 0x0b >"$bus/new_device"
check "the system has the Smart Battery" within 10 test -e /sys/class/power_supply/$smart

apply_policy >/dev/null
check "the unit starts" systemctl start tvk-client-service
check "both are described" within 90 eval "has 1 contexts BatteryEvent test_battery && has 1 contexts BatteryEvent $smart"
same "the one by its names" '["Test battery","Linux","Li-ion",null]' \
  "$(facts '.DeviceName, .Manufacturer, .Chemistry, .DesignChargeCapacity' "$(contexts BatteryEvent test_battery)")"
same "the other by its registers" '["50000","2024-11-18",null]' \
  "$(facts '.DesignChargeCapacity, .ManufactureDate, .DeviceName' "$(contexts BatteryEvent $smart)")"

same "tvkctl shows both" "$smart test_battery" \
  "$(tvkctl inspect battery --json | jq -r '[.batteries[].Id] | sort | join(" ")')"
# The Smart Battery's is "cafe", that of test_power the kernel's version, which other datasets tell, as they may.
numbers() { grep -wF -e cafe -e "$(uname -r)"; }
for what in battery power; do
  shown=$(tvkctl inspect $what && tvkctl inspect $what --json)
  report $? "tvkctl inspect $what works, and as JSON"
  check "tvkctl inspect $what shows something" test -n "$shown"
  none "tvkctl inspect $what shows no serial number in clear" "$(numbers <<<"$shown")"
done

unplugged=$SECONDS
plug off
set_power battery_status discharging
set_power battery_capacity 8
check "near empty" within 30 has 1 event BatteryNearEmpty test_battery
check "the machine sleeps and wakes" rtcwake -m mem -s 3
same "tvkctl shows what it runs on" battery "$(tvkctl inspect power --json | jq -r .source)"
check "unplugged" within 60 has 1 event DisconnectFromAC test_battery
check "not before 40 seconds" test $((SECONDS - unplugged)) -ge 40
same "what runs out" '["0","DC","8","3600",null]' \
  "$(facts '.ChargeStatus, ."AC/DC mode", .BatteryChargeRemaining, .RemainingTime, .CycleCount' "$(event DisconnectFromAC test_battery)")"
same "the other, too" '["0","DC","57","23370","41000","312"]' \
  "$(facts '.ChargeStatus, ."AC/DC mode", .BatteryChargeRemaining, .RemainingCapacity, .FullChargeCapacity, .CycleCount' "$(event DisconnectFromAC $smart)")"

plugged=$SECONDS
plug on
set_power battery_status charging
set_power battery_capacity 92
check "near full" within 30 has 1 event BatteryNearFull test_battery
# Nothing tells of the Smart Battery: somebody has to look.
set_register 0x16 128
set_register 0x0a 800
set_register 0x0d 93
check "plugged" within 60 has 1 event ConnectToAC test_battery
check "not before 40 seconds" test $((SECONDS - plugged)) -ge 40
check "the silent one is near full" within 60 has 1 event BatteryNearFull $smart
same "each once" "1 1" "$(event BatteryNearFull $smart | wc -l) $(event BatteryNearEmpty test_battery | wc -l)"
check "and their usage is told" test "$(event BatteryUsagePerInterval $smart | wc -l)" -ge 1
none "no serial number in clear in a record of the dataset" "$(records BatteryEvent | numbers)"
check "its log is there" test -s /var/log/tvk/BatteryEventMonitor.log
none "nor in its log" "$(numbers </var/log/tvk/BatteryEventMonitor.log)"
none "nor anywhere else" "$(grep -rlawF cafe /var/lib/tvk /var/log/tvk)"
none "no errors" "$(logged BatteryEventMonitor.log '[error]')"
check "the unit stops" systemctl stop tvk-client-service
same "the service ended well" "success 0" \
  "$(systemctl show -p Result -p ExecMainStatus --value tvk-client-service | paste -sd ' ')"

# As somebody sees it who runs the service in his terminal.
TVKClientService --console --policy /run/policy.json --data-dir /run/console >/run/console.txt 2>&1 &
console=$!
check "the console shows the batteries" within 60 grep -q 'BatteryEvent .*dataset context' /run/console.txt
sleep 5  # what it runs on at the start is no change
plug off
unplugged=$SECONDS
check "the console shows the plug that is pulled" within 60 grep -q DisconnectFromAC /run/console.txt
check "not before 40 seconds" test $((SECONDS - unplugged)) -ge 40
# Their drivers go while it runs: no error, no record of what is not there.
check "the batteries go" modprobe -r test_power sbs-battery
sleep 3  # what was being written of them
before=$(grep -c BatteryEvent /run/console.txt)
sleep 10  # their going is news of the charge
kill $console
wait $console
report $? "the console ends"
same "nothing was made up of batteries that went" "$before" "$(grep -c BatteryEvent /run/console.txt)"
none "and no error was logged" "$(grep -rhF "[error]" --include=BatteryEventMonitor.log /run/console)"
none "and has shown no serial number" "$(grep -F BatteryEvent /run/console.txt | numbers)"
none "nor kept one" "$(grep -rlawF cafe /run/console)"
finish
