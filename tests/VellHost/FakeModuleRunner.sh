#!/bin/sh
# A stand-in for VellModuleRunner that misbehaves as the request's script says: "fake:NAME", or
# "fake:slow-NAME" to wait a second first. Every start leaves a file "started" beside it before
# anything is read, so a test can tell that no process was ever launched. Like the real runner,
# it blocks reading its request once started, so it can wait as a spare.
: >"${0%/*}/started"
head=$(head -c 4096)
mode=${head#*fake:}
mode=${mode%%\"*}
if [ "$mode" = close-input-early ]; then exec 0<&-; else size=$((${#head} + $(wc -c))); fi
case $mode in slow-*) sleep 1 >/dev/null; mode=${mode#slow-} ;; esac
valid='{"state":{"count":"1"}}'

case $mode in
valid | close-input-early) printf %s "$valid" ;;
silent) ;;
hang-silently) exec sleep 600 ;;
*-after-answer)
    printf %s "$valid"
    case $mode in
    exit-1-*) exit 1 ;;
    killed-*) kill -9 $$ ;;
    close-output-*) exec >&- ;;
    esac
    exec sleep 600 ;;
# Trailing white space is valid JSON, so the answer stays readable at any length.
exactly-limit) printf %s "$valid"; head -c $((65536 - ${#valid})) /dev/zero | tr '\0' ' ' ;;
one-over-limit) printf %s "$valid"; head -c $((65537 - ${#valid})) /dev/zero | tr '\0' ' ' ;;
state-and-error) printf %s '{"state":{"count":"2"},"error":"The script gave up."}' ;;
no-state) printf %s '{}' ;;
invalid-state) printf %s '{"state":{"9lives":"x"}}' ;;
not-text-state) printf %s '{"state":{"count":1}}' ;;
noise-on-error-output) head -c 1048576 /dev/zero >&2; printf %s "$valid" ;;
report-environment) printf '{"state":{"variables":"%s"}}' "$(tr '\0' '\n' </proc/$$/environ)" ;;
report-pid) printf '{"state":{"pid":"%s"}}' $$ ;;
report-input-size) printf '{"state":{"bytes":"%s"}}' "$size" ;;
*) printf %s '{"error":"unknown fake behaviour"}' ;;
esac
