# The machine sleeps and wakes while the service runs: it goes on, and the drives still answer it.
source ./checks.sh

apply_policy >/dev/null
check "the unit starts" systemctl start tvk-client-service
check "the drives are described" within 90 has 1 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
before=$(systemctl show -p MainPID --value tvk-client-service)
check "the machine sleeps and wakes" rtcwake -m mem -s 3
check "it slept" grep -q '^success: 1' /sys/kernel/debug/suspend_stats
same "the same service runs" "$before active" \
  "$(systemctl show -p MainPID --value tvk-client-service) $(systemctl is-active tvk-client-service)"
check "the unit starts again" systemctl restart tvk-client-service
check "the NVMe drive tells of its health" \
  within 90 has 2 items PCIe_NVMe_SMARTEvent ReadSMARTPerSession "$nvme_model"
check "so does the SATA one" within 90 has 2 items SATA_SSD_SMARTEvent ReadSMARTPerSession "$ssd_model"
check "one context each" has 1 contexts PCIe_NVMe_SMARTEvent "$nvme_model"
none "no errors in the logs" "$(drive_errors)"
finish
