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
within() {  # SECONDS COMMAND...: the command succeeds before they are over
  local last=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [[ $SECONDS -lt $last ]] || return 1
    sleep 0.2
  done
}
records() {  # [OPTION OF "tvkctl records"]...
  tvkctl records --format json "$@"
}
by_id() { readlink -f "/dev/disk/by-id/$1"; }
finish() { exit $failed; }

# The machine's drives; the kernel names them anew at each start.
# shellcheck disable=SC2034
{
  nvme_serial=TBNVME00012345 ssd_serial=TBSSD-0001 hdd_serial=TBHDD-0002
  nvme=$(by_id nvme-QEMU_NVMe_Ctrl_TBNVME00012345)
  ssd=$(by_id ata-TESTBED_SATA_SSD_128_TBSSD-0001)
  hdd=$(by_id ata-TESTBED_SATA_HDD_192_TBHDD-0002)
}
