#!/usr/bin/env bash
# collector_program.sh COLLECTOR: what the collector answers over TLS and to scripts, prints and ends with.
set -euo pipefail
collector=$1
place=$(mktemp -d)
answers=$place/answers
trap 'kill "${process:-}" 2>/dev/null || true; rm -rf "$place"' EXIT

start() {
  exec {output}< <(exec "$collector" "$@" 2>&1)
  process=$! line=
  while [[ $line != ready ]]; do
    read -r -t 60 line <&"$output"
    case $line in url=* | page=* | certificate=*) declare -g "$line" ;; esac
  done
  page=${page%/*}
}
ends() {  # ends STATUS
  local status=0
  wait "$process" || status=$?
  process=
  is "$status" "$1"
}
is() {
  [[ $1 == "$2" ]] || { echo "line ${BASH_LINENO[0]}: '$1' is not '$2'" && exit 1; }
}
has() {
  [[ $1 == *"$2"* ]] || { echo "line ${BASH_LINENO[0]}: '$1' does not contain '$2'" && exit 1; }
}
prints() {
  read -r -t 60 line <&"$output"
  is "$line" "$1"
}
# Both print the answer's status, with an error if it was not whole; get also its body.
post() {  # post TARGET JSON
  curl -s --cacert "$certificate" -i -o "$place/answer" -w '%{http_code}%{errormsg}' -H Content-Type: \
    -H 'lib_version: ios_0.0' -H 'publisher_version: ios_2.3' "$url$1" \
    --data-binary "$([[ $1 == /control* ]] && printf %s "$2" || printf data=%s "$(printf %s "$2" | base64 -w0)")" || true
}
get() {
  curl -s -w ' %{http_code}' "$page$1" || true
}

record='{"event":"Bought","properties":{"time":1,"$wifi":true,"extra_json":{"att_auth_status":0},"plan":"pro"}}'
heartbeat='{"event":"heartbeat","properties":{"app_id":"","app_version":"2.3","os_version":"17.0","manufacturer":"Apple","uid":"u","session_id":"1938AF34-86B3-441B-9B58-B59F06DA94AC","time":1700000000000,"duration":0,"screen_orientation":"portrait","device_orientation":"faceUp"}}'

# Accepts, refuses and misbehaves.
start --require-token t --misbehave '{"path":"/track","status":503,"count":1}'
is "$(post '/track?uid=u%2B1' "[$record]")" 503
is "$(post '/track?uid=u%2B1' "[$record]")" 200
read -r -t 60 line <&"$output"
for part in '"path":"/track"' '"uid":"u+1"' '"lib_version":"ios_0.0"' "\"body\":[$record]"; do has "$line" "$part"; done
is "$(post '/track?uid=u' '[]')" 400
prints 'refused (track): the batch is empty'
is "$(post '/heartbeat?uid=u' "$heartbeat")" 401
prints 'refused (heartbeat): the heartbeat lacks the required token'
for wrong in '{"path":"/track","dorp":true}' '{"status":503}' '{"path":"/track","status":99}' \
  '{"path":"/track","drop":1}' path=/track; do
  is "$(post /control "$wrong")" 400
done
last='{"path":"/track","drop":true,"count":1},{"path":"/track","truncate":true,"accept":true,"count":1},{"path":"/track","status":200,"body":"a,b=c","count":1}]'
is "$(post /control "[{\"path\":\"/track\",\"status\":503,\"retry_after\":\"3\",\"count\":2},$last")" 200
is "$(post '/track?uid=u' "[$record]")" 503
has "$(<"$place/answer")" 'Retry-After: 3'
is "$(post /control '{"path":"/heartbeat","status":503}')" 200
has "$(<"$place/answer")" "{\"path\":\"/track\",\"status\":503,\"retry_after\":\"3\",\"count\":1},$last"
is "$(post '/track?uid=u' "[$record]")" 503
for _ in dropped truncated; do [[ $(post '/track?uid=u' "[$record]") =~ ^[0-9]+[^0-9] ]]; done
read -r -t 60 line <&"$output"
has "$line" "$record"
is "$(post '/track?uid=u' "[$record]")" 200
has "$(<"$place/answer")" 'a,b=c'
is "$(post '/track?uid=u' "[$record]")" 200
[[ $(<"$place/answer") != *'a,b=c'* ]]
kill "$process"
ends 0

# Tells scripts what has come.
start --output /dev/null
get '/wait?event=Bought&count=2&timeout=60' >"$answers" &
waiting=$!
record=${record/'"pro"'/12345678901234567890123}
for json in "[$record]" "[$record]" '[]'; do post '/track?uid=u' "$json" >/dev/null; done
post '/heartbeat?uid=u' "$heartbeat" >/dev/null
wait "$waiting"
is "$(cat "$answers")" '{"event":"Bought","count":2}'$'\n 200'
has "$(get '/wait?event=Bought&count=3&timeout=0')" ' 504'
has "$(get '/wait?event=Bought&cuont=2')" ' 400'
has "$(get /reset)" 'there is no GET /reset; '
has "$(get /events)" ",\"uid\":\"u\",\"answer\":200,\"body\":$record},"
has "$(get /heartbeats)" "$heartbeat"
has "$(get /refused)" '"the batch is empty"'
is "$(curl -s -o /dev/null -w '%{http_code}' -H 'Host: example.com' "$page/events")" 403
is "$(curl -s -o /dev/null -w '%{http_code}' -H 'Origin: http://example.com' -X POST "$page/reset")" 403
is "$(curl -s -o /dev/null -w '%{http_code}' -X POST "$page/reset")" 200
is "$(get /events)" $'[]\n 200'
get '/wait?event=Bought&timeout=3600' >/dev/null &
kill "$process"
ends 0

# Is readable, and ends at once when asked.
start --format readable --misbehave '{"path":"/track","latency_ms":600000}'
post '/heartbeat?uid=u' "$heartbeat" >/dev/null
read -r -t 60 line <&"$output"
has "$line" 'heartbeat  uid=u session_id="1938AF34-'
post '/track?uid=u' "[${record/12345678901234567890123/'"pro"'}]" >"$answers" &
waiting=$!
prints 'track  uid=u event="Bought" plan="pro"'
is "$(post /control/shutdown '')" 200
wait "$waiting"
is "$(cat "$answers")" 200
ends 0

# Refuses the key of another certificate.
for name in first second; do
  start --certificate "$place/$name" --key "$place/$name.key"
  kill "$process"
  ends 0
done
status=0
timeout 60 "$collector" --certificate "$place/first" --key "$place/second.key" >"$answers" 2>&1 || status=$?
is "$status" 1
has "$(<"$answers")" 'second.key is not the key of'
