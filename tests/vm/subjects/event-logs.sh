# The system's own journal: what is logged is a record within two seconds, and of a flood in which the service is killed
# each event is recorded once, or counted as skipped.
source ./checks.sh

flood=3000
# Entries of exactly the level that the policy selects.
in_journal() { journalctl --no-pager -q -p err..err -o cat | wc -l; }
# JSON of thousands of records is what this machine is slowest at: it is read as few times as can be.
of_item() { records EventViewerLogsEvent | grep -F "\"item_name\":\"$1\""; }
accounted() { echo $(($(of_item LoggedEvent | wc -l) + $(of_item EventsSkipped | jq -s 'map(.item_data.Count | tonumber) | add // 0'))); }
all_accounted() { [[ $(accounted) -eq $(in_journal) ]] || ! sleep 4; }

# The journal keeps all of the flood, and keeps it over a restart of its own.
mkdir -p /etc/systemd/journald.conf.d
printf '[Journal]\nRateLimitIntervalSec=0\nRuntimeMaxUse=200M\n' >/etc/systemd/journald.conf.d/flood.conf
check "the journal takes whatever comes" systemctl restart systemd-journald

jq '.telemetryScope = "full" | (.datasets[] | select(.name == "EventViewerLogsEvent")).settings =
    {Channels: "1001", LogLevels: "00000010", EventsPerMinute: "2000"}' \
  /usr/share/tvk/policy.default.json >/run/policy.json
check "the policy is applied" tvkctl policy apply /run/policy.json
check "the unit starts" systemctl start tvk-client-service
has_context() { records EventViewerLogsEvent | grep -q '"Levels"'; }
check "the dataset begins" within 60 has_context

logger -p user.err -t single "one of a kind"
single() { of_item LoggedEvent | grep -F "one of a kind"; }
check "what is logged is recorded" within 30 has 1 single
seconds_of() { date -d "$(single | jq -r "$1")" +%s; }
# Both are whole seconds, cut off.
check "within two seconds" test $(($(seconds_of .item_time) - $(seconds_of .item_data.TimeCreated))) -le 1

for ((i = 0; i < flood; ++i)); do echo "flood $i."; done >/run/flood
logger -p user.err -t flood -f /run/flood &
some() { [[ $(of_item LoggedEvent | wc -l) -gt 300 ]]; }
check "the flood is read" within 60 some
first=$(systemctl show -p MainPID --value tvk-client-service)
check "the service is killed in it" kill -KILL "$first"
check "while there is more to read" test "$(accounted)" -lt "$(in_journal)"
wait
another() { [[ $(systemctl show -p MainPID --value tvk-client-service) != @(0|"$first") ]]; }
check "it is started again" within 60 another
check "each event is recorded or counted" within 150 all_accounted
numbers=$(of_item LoggedEvent | grep -o 'flood [0-9]*\.' | sort)
check "what was read before the kill is kept" test "$(wc -l <<<"$numbers")" -gt 300
none "none is recorded twice" "$(uniq -d <<<"$numbers" | head -n 3)"
same "the service runs" active "$(systemctl is-active tvk-client-service)"
none "no errors in the logs" "$(cd /var/log/tvk && grep -h '\[error\]' ./*EventLog*.log WindowsLogs*.log EventDataLogging.log 2>/dev/null)"
finish
