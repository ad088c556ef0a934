#!/usr/bin/env bash
# replay_program.sh PROGRAM: the ends of veltrano-replay with what it cannot read, play or write.
set -euo pipefail
ends() {  # ends STATUS WORDS COMMAND...: its output, shortened, ends with the words
  local status=0 said
  said=$("${@:3}" 2>&1 | tail -c 1000) || status=$?
  [[ $status == "$1" && $said == *"$2" ]] ||
    { echo "${*:3}: the status is $status, and it says: $said" && exit 1; }
}
program=$1
play() {  # play STEP...
  printf '%s\n' "$@" | "$program" -
}
playToFull() {
  play "$@" >/dev/full
}
playFolder() {
  "$program" - </
}
steps=('{"op":"enableLog","on":true}' '{"op":"shared"}')

# Nothing runs when a step is malformed.
malformed='line 3: field "op" is missing'
ends 2 "$malformed" play "${steps[@]}" '{}'
[[ $(play "${steps[@]}" '{}' 2>&1 || true) == "$malformed" ]]
ends 2 '' "$program" /
ends 2 '' playFolder
ends 1 'the trace cannot be written' playToFull "${steps[@]}"
for interval in 1e-9 0.000001; do
  ends 3 'the scenario runs away: too much happens after one step' play "{\"op\":\"configure\",\"defaults\":{\"kelvora_heartbeat_interval\":$interval}}" \
    '{"op":"setUserId","id":"u"}'
done
