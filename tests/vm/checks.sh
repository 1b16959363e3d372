# Sourced by every subject: what checks, and what the machine has. Prints a line for each check; on failure what was
# seen, too.
# shellcheck shell=bash
set -u
failed=0

report() {  # STATUS WHAT [DETAIL]
  if [[ $1 -eq 0 ]]; then
    echo "  ok    $2"
  else
    echo "  FAIL  $2"
    # shellcheck disable=SC2001
    [[ -z ${3:-} ]] || sed 's/^/          /' <<<"$3"
    failed=1
  fi
}
check() {  # WHAT COMMAND...
  local what=$1 output status
  shift
  output=$("$@" 2>&1)
  status=$?
  report $status "$what" "$output"
}
none() {  # WHAT TEXT: there is none
  local status=0
  [[ -z $2 ]] || status=1
  report $status "$1" "$2"
}
same() {  # WHAT EXPECTED ACTUAL
  local status=0
  # What is expected comes from a tool; had that said nothing, nothing would be compared.
  [[ -n $2 && $2 == "$3" ]] || status=1
  report $status "$1" "expected: $2"$'\n'"found:    $3"
}
# SECONDS COMMAND...: the command succeeds before they are over. Tried again when the store was written, and else every
# three seconds: what a command starts takes the emulated processor longer than the wait.
within() {
  local last=$((SECONDS + $1)) next store=${TVK_DATA:-/var/lib/tvk}/records.db
  shift
  while
    : >/run/tried || return 1
    ! "$@" >/dev/null 2>&1
  do
    [[ $SECONDS -lt $last ]] || return 1
    next=$((SECONDS + 3))
    while
      read -rt 1 -u "$never"
      [[ $SECONDS -lt $next && ! $store-wal -nt /run/tried && ! $store -nt /run/tried ]]
    do :; done
  done
}
# A pipe of which nothing comes: to wait a second at it starts no program.
[[ -p /run/never ]] || mkfifo /run/never
exec {never}<>/run/never
# The policy in force: the default one, and what it does not ask for: self-tests each day, usage each minute.
apply_policy() {
  mkdir -p /etc/tvk
  jq '(.datasets[] | select(.name | endswith("SelfTestResult"))).settings.RunSelfTestInterval = "1d"
    | (.datasets[] | select(.name == "BatteryEvent")).settings.ReadUsageInterval = "1m"' \
    /usr/share/tvk/policy.default.json >/run/policy.json
  tvkctl policy apply /run/policy.json
}
# DATASET: one JSON object a line. Read anew when the store was written since: to start a program takes the emulated
# processor much of a second, and whoever waits asks each second.
records() {
  local store=${TVK_DATA:-/var/lib/tvk}/records.db file
  local known=/run/known${store%/*}/$1
  mkdir -p "${known%/*}"
  for file in "$store" "$store-wal"; do
    if [[ -e $file && ! $known.asked -nt $file ]]; then
      touch "$known.asked"
      tvkctl --data-dir "${store%/*}" records --format json --dataset "$1" >"$known" || rm -f "$known.asked"
      break
    fi
  done
  cat "$known"
}
# Devices are chosen by this key of their dataset context.
device_key=Model
contexts() {  # DATASET DEVICE: what its dataset contexts say of the devices with this text
  records "$1" | jq -c --arg key "$device_key" --arg device "$2" \
    'select(.item_name == null and .item_data[$key] == $device) | .item_data'
}
items() {  # DATASET ITEM DEVICE: what the item events say of the devices with this text, oldest first
  records "$1" | jq -s -c --arg item "$2" --arg key "$device_key" --arg device "$3" '
    (map(select(.item_name == null and .item_data[$key] == $device) | .dataset_context_id)) as $contexts
    | .[] | select(.item_name == $item and (.dataset_context_id | IN($contexts[]))) | .item_data'
}
has() {  # COUNT COMMAND...: the command prints so many lines
  local count=$1
  shift
  [[ $("$@" | wc -l) -eq $count ]]
}
logged() {  # LOG TEXT: lines of the log with this text
  grep -hF -- "$2" "${TVK_LOGS:-/var/log/tvk}/$1" || true
}

drive_errors() {  # what the logs of those who ask drives, and of the store, have as errors
  (cd "${TVK_LOGS:-/var/log/tvk}" && grep -h '\[error\]' StorageCollector.log Sto*Monitor.log *S[Mm][Aa][Rr][Tt]*Monitor.log \
    ./*SelfTest*Monitor.log EventDataLogging.log 2>/dev/null | sort -u)
}
by_id() { readlink -f "/dev/disk/by-id/$1"; }
finish() { exit $failed; }

# The machine's drives; the kernel names them anew at each start.
# shellcheck disable=SC2034
{
  nvme_model='QEMU NVMe Ctrl' ssd_model='TESTBED SATA SSD 128' hdd_model='TESTBED SATA HDD 192'
  nvme=$(by_id nvme-QEMU_NVMe_Ctrl_TBNVME00012345)
  ssd=$(by_id ata-TESTBED_SATA_SSD_128_TBSSD-0001)
  hdd=$(by_id ata-TESTBED_SATA_HDD_192_TBHDD-0002)
}
