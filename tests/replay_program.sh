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
ends 2 'the scenario cannot be read' "$program" /
ends 2 'cannot read the standard input' playFolder
ends 1 'the trace cannot be written' playToFull "${steps[@]}"
ends 3 'the scenario runs away: too much happens after one step' play \
  '{"op":"configure","defaults":{"kelvora_heartbeat_interval":1e-9}}' '{"op":"setUserId","id":"u"}'

# Live scenarios are limited.
live() {
  printf '%s\n' "$@" | "$program" --live localhost:1 -
}
end='{"op":"end","at":0.1}'
ends 0 '' live '{"op":"configure","info":{}}' "$end"
for step in '{"op":"configure","startTime":5}' '{"op":"clockJump","seconds":1}' \
  '{"op":"batch","steps":[{"op":"network","path":"/track","status":200}]}'; do
  ends 2 ' is not possible live' live "$step" "$end"
done
ends 2 'a live scenario needs an end, and the last line is reached' live '{"op":"shared"}'

# Values of any depth are read.
brackets() {
  head -c 200000 /dev/zero | tr '\0' "$1"
}
playDeep() {
  { printf '{"op":"isValidNestedType","value":' && brackets '[' && brackets ']' && echo '}'; } | "$program" -
}
ends 0 '' playDeep
