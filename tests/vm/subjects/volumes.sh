# What the storage dataset tells of a volume is what the file system tells: its size, that it is full, that it has
# errors; also through the unit's sandbox, of a volume that is mounted while the service runs.
# Needs no batteries; it shares the machine of the subject that does.
# machine: --batteries
source ./checks.sh

mkfs.ext4 -q -L secretlabel "$ssd"
mkfs.ext4 -q "$nvme"
mkdir -p /srv/data /srv/fast
in_force() { records StorageEvent | jq -s -c --arg kind "$1" 'map(select(.item_data.Kind == $kind)) | last | .item_data'; }
item() { records StorageEvent | jq -s -c --arg item "$1" 'map(select(.item_name == $item)) | last | .item_data // empty'; }
has_item() { [[ -n $(item "$1") ]]; }
bytes() { df -B1 --output="$1" /srv/data | tail -n 1 | tr -d ' '; }

apply_policy >/dev/null
check "the unit starts" systemctl start tvk-client-service
check "the drives are described" within 90 has 1 contexts StorageEvent "$ssd_model"
check "a volume is mounted while it runs" mount "$ssd" /srv/data
check "the unit starts again" systemctl restart tvk-client-service
volume_described() { [[ $(in_force volume | jq -r .FileSystem) == ext4 ]]; }
check "the volume is described" within 90 volume_described
same "what it is" "[\"data\",\"ext4\",\"$(bytes size)\",\"false\"]" \
  "$(in_force volume | jq -c '[.VolumeRole, .FileSystem, .Size, .Encrypted]')"
check "a volume on the NVMe drive is mounted" mount -t ext4 "$nvme" /srv/fast
check "the unit starts once more" systemctl restart tvk-client-service
sizes() { records StorageEvent | jq -r 'select(.item_data.Kind == "volume") | .item_data.Size' | sort -u; }
fast_described() { sizes | grep -qx "$(df -B1 --output=size /srv/fast | tail -n 1 | tr -d ' ')"; }
check "it is described, too" within 90 fast_described
check "it is unmounted" umount /srv/fast
none "it is not low on space" "$(item FreeSpaceLow)"
none "it has no errors" "$(item FileSystemError)"
check "the unit stops" systemctl stop tvk-client-service

# Later it is full, and the file system has found an error.
date -s '+2 hours' >/dev/null
fallocate -l $(($(bytes avail) * 95 / 100)) /srv/data/file
echo 1 >"/sys/fs/ext4/${ssd##*/}/trigger_fs_error"
check "the unit starts later" systemctl start tvk-client-service
check "the report comes" within 90 has_item ReadVolumePerInterval
same "how full it is" "[\"$(bytes size)\",\"$(bytes avail)\"]" \
  "$(item ReadVolumePerInterval | jq -c '[.Size, .FreeSpace]')"
check "low space is told" within 30 has_item FreeSpaceLow
same "how low" "[\"true\",\"$(bytes avail)\"]" "$(item FreeSpaceLow | jq -c '[.Low, .FreeSpace]')"
check "the error is told" within 30 has_item FileSystemError
same "how many there are" "$(cat "/sys/fs/ext4/${ssd##*/}/errors_count")" "$(item FileSystemError | jq -r .FileSystemErrors)"
check "the unit stops" systemctl stop tvk-client-service
uuid=$(lsblk -dno UUID "$ssd")
check "the volume has a name of its own" test -n "$uuid"
none "no label, name or place of the volume is told" "$(grep -rlaE "secretlabel|$uuid|/srv/data" /var/lib/tvk)"
none "no errors in the logs" "$(drive_errors)"
finish
