# Without the rights to ask drives they are described by what the system knows, and each is told of in the log once.
source ./checks.sh
export TVK_DATA=/var/lib/tvk TVK_LOGS=/var/log/tvk

# The drives are described, no drive's health is known, and the log has one line a drive.
check_without_rights() {  # WHO
  check "$1: the drives are described" within 90 has 3 described_drives
  check "$1: the NVMe drive is one of its dataset" within 90 has 1 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
  check "$1: the log says that there is no right" within 90 has 3 drives_without_right
  same "$1: model of the NVMe drive" "\"$nvme_model\"" "$(contexts PCIe_NVMe_SMARTEvent "$nvme_model" | jq .Model)"
  none "$1: no health, no self-test" \
    "$(for dataset in PCIe_NVMe_SMARTEvent SATA_SSD_SMARTEvent SMARTEvent PCIe_NVMe_SelfTestResult SATA_SSD_SelfTestResult; do
      records $dataset
    done | jq -c 'select(.item_name != null and .item_name != "DeviceInit")')"
  none "$1: nothing is told twice" "$(logged StorageCollector.log error | sed 's/^\[[^]]*\] //' | sort | uniq -d)"
  none "$1: no other errors" "$(drive_errors | grep -vE 'no right to ask it|Failed retCode')"
}
described_drives() { records StorageEvent | jq -c 'select(.item_data.Kind == "drive")'; }
drives_without_right() {
  logged StorageCollector.log "no right to ask it" | grep -o '/dev/[a-z0-9]*' | sort -u
}

apply_policy >/dev/null
mkdir -p /run/systemd/system/tvk-client-service.service.d
cp /usr/share/tvk/no-drives.conf /run/systemd/system/tvk-client-service.service.d/
systemctl daemon-reload
check "with the drop-in: the unit starts" systemctl start tvk-client-service
check_without_rights "with the drop-in"
check "with the drop-in: the unit stops" systemctl stop tvk-client-service
same "with the drop-in: the service ended well" "success 0" \
  "$(systemctl show -p Result -p ExecMainStatus --value tvk-client-service | paste -sd ' ')"

TVK_DATA=/tmp/nobody/data TVK_LOGS=/tmp/nobody/log
install -d -o nobody /tmp/nobody
install -o nobody /run/policy.json /tmp/nobody/policy.json
setpriv --reuid nobody --regid nobody --clear-groups \
  TVKClientService --policy /tmp/nobody/policy.json --data-dir $TVK_DATA --log-dir $TVK_LOGS >/tmp/nobody.out 2>&1 &
service=$!
check_without_rights "as nobody"
kill -TERM $service
wait $service
same "as nobody: the service ended well" 0 $?

inspected=$(setpriv --reuid nobody --regid nobody --clear-groups tvkctl inspect drives --json)
same "as nobody: drives are listed" '["/dev/nvme0n1","/dev/sda","/dev/sdb"]' \
  "$(jq -c '.drives | map(.path) | sort' <<<"$inspected")"
recorded=$(setpriv --reuid nobody --regid nobody --clear-groups tvkctl inspect drives --record /tmp/nobody/recorded 2>&1)
check "as nobody: a recording says what is missing" grep -q 'no right' <<<"$recorded"
health=$(setpriv --reuid nobody --regid nobody --clear-groups tvkctl inspect smart 2>&1)
same "as nobody: no drive's health is a failure" 3 $?
check "as nobody: and says what is missing" grep -q 'no right' <<<"$health"
finish
