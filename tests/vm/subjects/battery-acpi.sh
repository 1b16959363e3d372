# The batteries of a notebook's firmware: unplugged, one taken out and another put in, plugged, filled, asleep.
# machine: --batteries
source ./checks.sh
export device_key=Id
event() { items BatteryEvent "$1" "$2"; }  # ITEM ID
facts() { jq -c "[$1]" <<<"$2"; }
supplies() { ls /sys/class/power_supply; }

poke ac 1
poke bat0 present=1 state=charging rate=15230 remaining=36120 voltage=12345 full=47310 cycles=213 design=50500
poke bat1 present=1 state=idle rate=0 remaining=22990 voltage=11876 full=22990 cycles=41 design=24050
check "the system has them" within 10 has 3 supplies

apply_policy >/dev/null
check "the unit starts" systemctl start tvk-client-service
check "both are described" within 90 eval "has 1 contexts BatteryEvent BAT0 && has 1 contexts BatteryEvent BAT1"
same "one" '["CELL-57A","Acme Cells","Li-poly","50500"]' \
  "$(facts '.DeviceName, .Manufacturer, .Chemistry, .DesignChargeCapacity' "$(contexts BatteryEvent BAT0)")"
same "and the other" '["CELL-22X","Zeta Power","Li-ion","24050"]' \
  "$(facts '.DeviceName, .Manufacturer, .Chemistry, .DesignChargeCapacity' "$(contexts BatteryEvent BAT1)")"

unplugged=$SECONDS
poke ac 0
sleep 2  # the kernel keeps a reading for a second
poke bat0 state=discharging rate=8000 remaining=30000
poke bat1 present=0
check "one is taken out" within 10 has 2 supplies
check "unplugged" within 60 has 1 event DisconnectFromAC BAT0
check "not before 40 seconds" test $((SECONDS - unplugged)) -ge 40
same "what runs out" '["0","DC","63","30000","47310","213","13500"]' \
  "$(facts '.ChargeStatus, ."AC/DC mode", .BatteryChargeRemaining, .RemainingCapacity, .FullChargeCapacity, .CycleCount, .RemainingTime' "$(event DisconnectFromAC BAT0)")"
none "nothing of the one that is out" "$(event DisconnectFromAC BAT1)"

plugged=$SECONDS
poke ac 1
poke bat1 present=1 state=charging rate=9000 remaining=10000 full=30000 cycles=3 design=30000
check "another one is put in, and described" within 30 has 2 contexts BatteryEvent BAT1
sleep 2
poke bat0 state=charging rate=15000 remaining=43000
check "near full" within 30 has 1 event BatteryNearFull BAT0
check "the machine sleeps and wakes" rtcwake -m mem -s 3
check "plugged" within 60 has 1 event ConnectToAC BAT0
check "not before 40 seconds" test $((SECONDS - plugged)) -ge 40
same "the new one, too" '["1","AC","33","3"]' \
  "$(facts '.ChargeStatus, ."AC/DC mode", .BatteryChargeRemaining, .CycleCount' "$(event ConnectToAC BAT1)")"
same "near full once" 1 "$(event BatteryNearFull BAT0 | wc -l)"
check "and their usage is told" test "$(event BatteryUsagePerInterval BAT0 | wc -l)" -ge 1
none "no serial number in clear" "$(grep -rlaE 'TBCELL00427|TBCELL3121' /var/lib/tvk /var/log/tvk)"
none "no errors" "$(logged BatteryEventMonitor.log '[error]')"
check "the unit stops" systemctl stop tvk-client-service
same "the service ended well" "success 0" \
  "$(systemctl show -p Result -p ExecMainStatus --value tvk-client-service | paste -sd ' ')"
finish
