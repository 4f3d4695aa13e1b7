#!/usr/bin/env bash
# What "tarnwick completion" and "tarnwick manual" print, as bash and, where they are installed, zsh, fish and groff take it.
#   completion.sh PROGRAM
set -euo pipefail
program=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0
Fail()
{
    echo "completion: $*" >&2
    failed=1
}

"$program" completion bash >"$folder/tarnwick.bash"
# shellcheck disable=SC1091
source "$folder/tarnwick.bash"
# What bash offers for these words of a command line, the last of them unfinished.
Offered()
{
    COMP_WORDS=(tarnwick "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _tarnwick
    printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd' '
}
Expect()
{
    local expected=$1
    shift
    [[ "$(Offered "$@")" == "$expected" ]] || Fail "tarnwick $*: offers \"$(Offered "$@")\"; expected \"$expected\""
}
Expect 'apply' ap
Expect '--help --version' --
Expect '--coding --column' lock --co
Expect 'PAM3 PAM4 PAM4-precoded' lock --coding P
Expect 'PAM3 PAM4 PAM4-precoded' lock capture.csv --coding = P
Expect 'NRZ PAM3 PAM4 PAM4-precoded' lock --coding =
Expect 'bash' completion b
Expect '' apply cha                # files, which bash completes by itself
Expect '' no-such-command x
[[ "$(complete -p tarnwick)" == *'-o default'* ]] || Fail 'bash does not complete files'

# Every command and option of the help.
"$program" --help >"$folder/help"
commands=$(sed -n '/^Subcommands:/,$ s/^  \([a-z][a-z-]*\) .*/\1/p' "$folder/help")
[[ $(wc -w <<<"$commands") -gt 10 ]] || Fail "the help names too few commands: $commands"
manual=$("$program" manual)
for command in $commands; do
    options=$("$program" "$command" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE '\-\-[a-z-]+' | sort | paste -sd' ')
    Expect "$options" "$command" --
    for option in $options; do
        grep -qF "\\fB${option//-/\\-}\\fR" <<<"$manual" || Fail "the manual lacks $command $option"
    done
done

# A shell that is not installed reads nothing.
for shell in zsh fish; do
    "$program" completion "$shell" >"$folder/script.$shell"
    if ! command -v "$shell" >/dev/null; then
        echo "completion: $shell is not installed; its script was not read"
    elif ! "$shell" -n "$folder/script.$shell"; then
        Fail "$shell refuses its script"
    fi
done
if command -v fish >/dev/null; then
    offered=$(fish --no-config -c "source $folder/script.fish; complete -C 'tarnwick lock --coding P'" | cut -f1 | sort | paste -sd' ')
    [[ "$offered" == 'PAM3 PAM4 PAM4-precoded' ]] || Fail "fish offers \"$offered\""
fi
if command -v groff >/dev/null; then
    warnings=$(groff -man -Tutf8 -ww -z <<<"$manual" 2>&1)
    [[ -z "$warnings" ]] || Fail "groff warns of the manual: $warnings"
else
    echo 'completion: groff is not installed; the manual was not read'
fi
exit "$failed"
