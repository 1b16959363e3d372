# What "tvkctl inspect" shows is what the kernel's, the drives' and the firmware's own tools show. Beside the usual
# drives the machine has a CD, an NVMe drive of two namespaces, one that two controllers reach, and a USB stick.
# machine: -- -device ide-cd,bus=ide.2
# machine: -blockdev null-co,node-name=n1,size=33554432 -blockdev null-co,node-name=n2,size=50331648
# machine: -device nvme,id=spaces,serial=TBSPACES -device nvme-ns,bus=spaces,drive=n1 -device nvme-ns,bus=spaces,drive=n2
# machine: -blockdev null-co,node-name=n3,size=67108864 -device nvme-subsys,id=paths,nqn=paths
# machine: -device nvme,id=path1,serial=TBPATHS,subsys=paths -device nvme,id=path2,serial=TBPATHS,subsys=paths
# machine: -device nvme-ns,bus=path1,drive=n3,shared=on
# machine: -blockdev null-co,node-name=stick,size=16777216
# machine: -device usb-storage,bus=usb.0,drive=stick,serial=TBSTICK,removable=on
source ./checks.sh
within 20 test -b /dev/disk/by-id/usb-QEMU_QEMU_HARDDISK_TBSTICK-0:0

# What is made of files or of other drives is none.
modprobe -a loop dm_mod
truncate -s 8M /tmp/file
loop=$(losetup -f --show /tmp/file)
check "a drive is mapped" dmsetup create mapping --table "0 1024 linear $nvme 0"
check "a file is a loop drive" test -b "$loop"

inspected=$(tvkctl inspect drives --json)
seen() { jq -c ".drives | map($1)" <<<"$inspected"; }
known() { lsblk -J -b -d -o PATH,TYPE,SIZE,ROTA,RM,TRAN | jq -c ".blockdevices | map(select(.path | test(\"/dm-|/loop\") | not))
  | map(select(.type == \"disk\")) | sort_by([(.path | length), .path]) | map($1)"; }
same "drives: paths" "$(known .path)" "$(seen .path)"
same "drives: bytes" "$(known .size)" "$(seen .bytes)"
same "drives: removable media" "$(known .rm)" "$(seen .removable)"
same "drives: bus" "$(known '{"nvme": "NVMe", "sata": "ATA", "usb": "USB"}[.tran]')" "$(seen .bus)"
# The kernel has a drive turn whose maker did not say: the USB stick's.
same "drives: rotating" "$(known 'select(.tran != "usb") | .rota')" "$(seen 'select(.bus != "USB") | .rotating')"
for drive in "$nvme" "$ssd" "$hdd"; do
  same "drives: model and firmware, $(lsblk -dno MODEL "$drive")" \
    "$(smartctl -j -i "$drive" | jq -c '[.model_name, .firmware_version]')" \
    "$(jq -c ".drives[] | select(.path == \"$drive\") | [.model, .firmware]" <<<"$inspected")"
done
none "drives: no serial number" "$(grep -E 'TB(NVME|SSD-|HDD-|SPACES|PATHS|STICK)' <<<"$inspected")"

# What a recording has of the drives is what their own tools read.
check "drives: recorded" tvkctl inspect drives --record /tmp/recorded
recorded() { grep -lx "path $1" /tmp/recorded/drives/*/drive.txt | xargs dirname; }
nvme get-log --log-id=2 --log-len=512 -b "$nvme" >/tmp/health
check "drives: recorded, NVMe health" cmp /tmp/health "$(recorded "$nvme")/nvme-health"
for drive in "$ssd" "$hdd"; do
  same "drives: recorded, attributes of $drive" \
    "$(smartctl -j -A "$drive" | jq -c '[.ata_smart_attributes.table[] | select(.id | IN(1, 5, 9, 12)) | [.raw.value, .value, .thresh, .worst]]')" \
    "$(tvkctl inspect smart --table sata --json --ata-values "$(recorded "$drive")/ata-smart-values" \
      --ata-thresholds "$(recorded "$drive")/ata-smart-thresholds" |
      jq -c '[.itemData | .ReadErrorRate, .ReallocatedSectorCount, .PowerOnHours, .PowerCycle | fromjson
        | [.raw, .normalized, .threshold, .worst | tonumber]]')"
done
# And what it tells of them without a recording.
health=$(tvkctl inspect smart --table sata --json)
for drive in "$ssd" "$hdd"; do
  same "smart: attributes of $drive" \
    "$(smartctl -j -A "$drive" | jq -c '[.ata_smart_attributes.table[] | select(.id | IN(1, 5, 9, 12)) | [.raw.value, .value, .thresh, .worst]]')" \
    "$(jq -c ".drives[] | select(.path == \"$drive\") | [.itemData | .ReadErrorRate, .ReallocatedSectorCount, .PowerOnHours, .PowerCycle
      | fromjson | [.raw, .normalized, .threshold, .worst | tonumber]]" <<<"$health")"
done
same "smart: the NVMe drive's spare and temperature" \
  "$(nvme smart-log -o json "$nvme" | jq -c '[.avail_spare, .spare_thresh, .temperature - 273 | tostring]')" \
  "$(jq -c ".drives[] | select(.path == \"$nvme\") | .itemData | [.AvailableSpare, .AvailableSpareThreshold, .TemperatureC]" <<<"$health")"
none "drives: recorded, no serial number" "$(grep -rlaE 'TB(NVME|SSD-|HDD-|SPACES|PATHS|STICK)|BTSS-D|BTDH-D' /tmp/recorded)"

cpu=$(tvkctl inspect cpu --json)
cpu_says() { jq -r ".$1" <<<"$cpu"; }
same "cpu: name" "$(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -n 1)" "$(cpu_says cpu_name)"
same "cpu: cores" "$(lscpu -p=core,socket | grep -v '^#' | sort -u | wc -l)" "$(cpu_says cpu_numofcores)"
same "cpu: logical processors" "$(nproc --all)" "$(cpu_says cpu_numoflogicalprocessors)"

memory=$(tvkctl inspect memory --json)
module() { dmidecode -t 17 | sed -n "s/^\s*$1: //p"; }
same "memory: module" "$(module Locator), $(module 'Bank Locator'), $(module Manufacturer), $(module Type)" \
  "$(jq -r '.slots[] | "\(.DeviceLocator), \(.MemorySlotBankLabel), \(.MemorySlotManufacturer), \(.MemoryType)"' <<<"$memory")"
same "memory: size" "$(module Size)" "$(jq -r '.slots[].MemorySlotSize | rtrimstr("MB") | tonumber / 1024 | "\(.) GB"' <<<"$memory")"

firmware=$(tvkctl inspect firmware --json)
same "firmware: version, date" \
  "$(dmidecode -s bios-version), $(dmidecode -s bios-release-date | sed -E 's,(..)/(..)/(....),\3-\1-\2,')" \
  "$(jq -r '"\(.BIOSName), \(.BIOSReleaseDate)"' <<<"$firmware")"
same "firmware: machine" \
  "$(dmidecode -s system-manufacturer), $(dmidecode -s system-product-name), $(dmidecode -s baseboard-product-name)" \
  "$(jq -r '"\(.system.manufacturer), \(.system.product), \(.baseboard.product)"' <<<"$firmware")"
none "firmware: no serial number" "$(grep -E 'TB0SYS01|L1TB01234567' <<<"$firmware")"
finish
