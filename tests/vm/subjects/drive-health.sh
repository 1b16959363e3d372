# What the service, started by its unit, writes of the drives' health is what their own tools say; the self-tests run.
# machine: --qmp
source ./checks.sh

# The health of an NVMe drive as records have it.
nvme_health() {
  nvme smart-log -o json "$nvme" | jq -c -S '{
    CriticalWarning: .critical_warning, TemperatureC: (.temperature - 273), AvailableSpare: .avail_spare,
    AvailableSpareThreshold: .spare_thresh, PercentageUsed: .percent_used, DataUnitsRead: .data_units_read,
    DataUnitsWritten: .data_units_written, HostReadCommands: .host_read_commands,
    HostWrittenCommands: .host_write_commands, ControllerBusyTime: .controller_busy_time, PowerCycle: .power_cycles,
    PowerOnHours: .power_on_hours, UnsafeShutdowns: .unsafe_shutdowns, MediaErrors: .media_errors,
    ErrorInfoLogEntryCount: .num_err_log_entries, WarningCompositeTemperatureTime: .warning_temp_time,
    CriticalCompositeTemperatureTime: .critical_comp_time} | map_values(tostring)'
}
# The attributes of an ATA drive under the names of a dataset: what the machine's drives have of them.
ata_health() {  # DRIVE NAMES
  smartctl -j -A "$1" | jq -c -S --argjson names "$2" '[.ata_smart_attributes.table[] | select($names["\(.id)"]) | {
    key: $names["\(.id)"],
    value: "{ \"raw\": \"\(.raw.value)\",\"normalized\": \"\(.value)\",\"threshold\": \"\(.thresh)\",\"worst\": \"\(.worst)\"}"
  }] | from_entries'
}
ssd_names='{"1": "ReadErrorRate", "5": "ReallocatedSectorCount", "9": "PowerOnHours", "12": "PowerCycle", "190": "TemperatureC"}'
ata_names='{"1": "RawReadErrorRate", "3": "SpinupTime", "4": "StartStopCount", "5": "ReallocatedSectorCount",
  "9": "PowerOnHours", "12": "PowerCycleCount", "190": "AirflowTemperature"}'
newest() { items "$@" | tail -n 1 | jq -c -S .; }

tests_of() { smartctl -j -l selftest "$1" | jq '.ata_smart_self_test_log.standard.count'; }
described() { tvkctl records --format json --kind dataset | jq -r '"\(.dataset_name) \(.item_data.Model)"' | sort | grep -E 'SMART|SelfTest|StorageEvent'; }

dd if="$nvme" of=/dev/null bs=1M count=8 iflag=direct status=none
dd if=/dev/zero of="$nvme" bs=1M count=4 oflag=direct status=none
check "the policy is applied" apply_policy
check "the unit starts" systemctl start tvk-client-service
check "NVMe: the session's record comes" within 90 has 1 items PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model"
same "NVMe: its values" "$(nvme_health)" "$(newest PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model")"
check "SATA SSD: the session's record comes" within 90 has 1 items SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model"
same "SATA SSD: its values" "$(ata_health "$ssd" "$ssd_names")" \
  "$(newest SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model")"
none "SATA SSD: the disk is none" "$(contexts SATA_SSD_SMARTEvent "$hdd_model")"
for drive in "$nvme" "$ssd" "$hdd"; do
  told=$(smartctl -j -i "$drive" | jq -c '[.model_name, .firmware_version]')
  same "model and firmware, $drive" "$told" \
    "$(contexts StorageEvent "$(jq -r '.[0]' <<<"$told")" | jq -c '[.Model, .FirmwareVersion]' | sort -u)"
done
for dataset in StorageEvent PCIe_NVMe_SMARTEvent; do contexts $dataset "$nvme_model"; done |
  jq -r .SerialNumber | sort -u >/tmp/serials
check "NVMe: one hash of its serial number" grep -qE '^[0-9A-F]{64}$' /tmp/serials
check "NVMe: in each of its datasets" has 1 cat /tmp/serials
# The first test is due with the first start.
check "SATA SSD: the result of a self-test comes" \
  within 90 has 1 items SATA_SSD_SelfTestResult ReadSelfTestResult "$ssd_model"
same "SATA SSD: its words" '{"TestResult":"Completed without error","TestType":"short"}' \
  "$(newest SATA_SSD_SelfTestResult ReadSelfTestResult "$ssd_model")"
same "SATA SSD: the drive has run one test" 1 "$(tests_of "$ssd")"
same "SATA SSD: a short one" '["Short offline","Completed without error"]' \
  "$(smartctl -j -l selftest "$ssd" | jq -c '.ata_smart_self_test_log.standard.table[0] | [.type.string, .status.string]')"
# The emulated NVMe drive has none to run.
check "NVMe: the log says that there is no self-test" \
  within 90 has 1 logged PCIeNVMeSelfTestEventMonitor.log "the drive has no self-tests"
none "NVMe: no result of one" "$(items PCIe_NVMe_SelfTestResult ReadSelfTestResult "$nvme_model")"
check "the unit stops" systemctl stop tvk-client-service
same "the service ended well" "success 0" \
  "$(systemctl show -p Result -p ExecMainStatus --value tvk-client-service | paste -sd ' ')"

# The next day, after more use, with a warning.
date -s '+25 hours' >/dev/null
check "the drive warns" \
  qmp qom-set '{"path": "/machine/peripheral/nvme", "property": "smart_critical_warning", "value": 6}'
dd if="$nvme" of=/dev/null bs=1M count=8 iflag=direct status=none
check "the unit starts the next day" systemctl start tvk-client-service
for item in ReadSMARTPerSession:2 ReadSMARTPerDay:1; do
  check "NVMe: ${item%:*} comes" within 90 has "${item#*:}" items PCIe_NVMe_SMARTEvent "${item%:*}" "$nvme_model"
  same "NVMe: its values, with the warning" "$(nvme_health)" "$(newest PCIe_NVMe_SMARTEvent "${item%:*}" "$nvme_model")"
done
check "ATA: the day's record of the disk comes" within 90 has 1 items SMARTEvent ReadSMARTPerDay "$hdd_model"
same "ATA: its values" "$(ata_health "$hdd" "$ata_names")" "$(newest SMARTEvent ReadSMARTPerDay "$hdd_model")"
check "ATA: the day's record of the solid-state drive comes" within 90 has 1 items SMARTEvent ReadSMARTPerDay "$ssd_model"
same "ATA: its values" "$(ata_health "$ssd" "$ata_names")" "$(newest SMARTEvent ReadSMARTPerDay "$ssd_model")"
none "ATA: no threshold is crossed" "$(records SMARTEvent | jq -c 'select(.item_name == "ThresholdExceedsCondition")')"

check "SATA SSD: the next self-test's result comes" \
  within 90 has 2 items SATA_SSD_SelfTestResult ReadSelfTestResult "$ssd_model"
same "SATA SSD: the drive has run two tests" 2 "$(tests_of "$ssd")"

# Once more on the same day: only the session is new.
before=$(described)
check "the unit starts again" systemctl restart tvk-client-service
check "NVMe: the third session's record comes" \
  within 90 has 3 items PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model"
check "SATA SSD: the third session's record comes" \
  within 90 has 3 items SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model"
same "the same contexts" "$before" "$(described)"
check "no second record of the day" has 1 items PCIe_NVMe_SMARTEvent ReadSMARTPerDay "$nvme_model"
same "no third self-test" 2 "$(tests_of "$ssd")"
same "the disk has run none" 0 "$(tests_of "$hdd")"

none "no serial number in clear" "$(grep -rlaE 'TBNVME00012345|TBSSD-0001|TBHDD-0002' /var/lib/tvk /var/log/tvk)"
none "no errors in the logs" "$(drive_errors)"
finish
