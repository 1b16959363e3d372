# Drives that come and go, and a machine that sleeps, while the service runs: it hears of them, describes what is new
# once, and goes on for the others.
# machine: --qmp
source ./checks.sh

devices_of() { lsblk -dno SERIAL | grep -Fx "$1"; }
lines_logged() { cat /var/log/tvk/*.log | wc -l; }

apply_policy >/dev/null
check "the unit starts" systemctl start tvk-client-service
check "the drives are described" within 90 has 1 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
check "in the storage dataset, too" has 1 contexts StorageEvent "$nvme_model"

check "an NVMe drive is plugged in" qmp device_add \
  '{"driver": "nvme", "id": "second", "bus": "port2", "drive": "spare0", "serial": "TBSECOND0002"}'
check "the system has it" within 30 has 1 devices_of TBSECOND0002
check "it is described among the drives" within 60 has 2 contexts StorageEvent "$nvme_model"
check "it is described among the NVMe drives" within 60 has 2 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
check "under a hash of its own" has 2 sort -u <<<"$(contexts PCIe_NVMe_SMARTEvent "$nvme_model" | jq .SerialNumber)"

check "a USB stick is plugged in" qmp device_add \
  '{"driver": "usb-storage", "id": "stick", "bus": "usb.0", "drive": "spare1", "serial": "TBSTICK0003", "removable": true}'
check "the system has it" within 30 has 1 devices_of TBSTICK0003
check "it is described as removable" within 60 has 1 contexts StorageEvent "QEMU QEMU HARDDISK"
same "and what else it is" '["USB","true"]' "$(contexts StorageEvent "QEMU QEMU HARDDISK" | jq -c '[.DriveType, .Removable]')"
none "it has no dataset of health" "$(contexts SMARTEvent "QEMU QEMU HARDDISK")"

check "the first NVMe drive is pulled" qmp device_del '{"id": "nvme"}'
check "the system has it no more" within 60 has 0 devices_of TBNVME00012345
check "the stick is pulled" qmp device_del '{"id": "stick"}'
check "the system has it no more" within 30 has 0 devices_of TBSTICK0003
# Longer than the service waits for more news; what would go on and on shows within a few seconds more.
sleep 8
logged_then=$(lines_logged)
sleep 5
check "nothing goes on in the logs" test $(($(lines_logged) - logged_then)) -le 5

check "the first NVMe drive is put back" qmp device_add \
  '{"driver": "nvme", "id": "again", "bus": "port3", "drive": "nvme", "serial": "TBNVME00012345"}'
check "the system has it again" within 30 has 1 devices_of TBNVME00012345
sleep 8
check "it is known" has 2 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
same "the service runs" active "$(systemctl is-active tvk-client-service)"
check "the unit starts again" systemctl restart tvk-client-service
# One of the first session, and one of each of the two drives.
check "both NVMe drives tell of their health" \
  within 90 has 3 items PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model"
check "so do the others" within 90 has 2 items SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model"

before=$(systemctl show -p MainPID --value tvk-client-service)
check "the machine sleeps and wakes" rtcwake -m mem -s 3
check "it slept" grep -q '^success: 1' /sys/kernel/debug/suspend_stats
same "the same service runs" "$before active" \
  "$(systemctl show -p MainPID --value tvk-client-service) $(systemctl is-active tvk-client-service)"
check "the unit starts once more" systemctl restart tvk-client-service
check "the NVMe drives tell of their health" \
  within 90 has 5 items PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model"
check "so do the others" within 90 has 3 items SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model"
check "nothing is described anew" has 2 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
check "the unit stops" systemctl stop tvk-client-service
same "the service ended well" "success 0" \
  "$(systemctl show -p Result -p ExecMainStatus --value tvk-client-service | paste -sd ' ')"
none "no serial number in clear" "$(grep -rlaE 'TBNVME00012345|TBSECOND0002|TBSTICK0003' /var/lib/tvk /var/log/tvk)"
# The stick's bridge passes nothing on, which is found out by asking.
none "no errors in the logs, but of the stick" "$(drive_errors | grep -vF 'what it is attached to does not pass it on')"
check "and that one once" has 1 logged StorageCollector.log "what it is attached to does not pass it on"
finish
