# shellcheck shell=bash
# Each pattern is written so that it does not match itself.
check_words() {
    local status=0 patterns=(
        # paths of one machine
        '(^|[^[:alnum:]_.~})-]|-[ILB])/(work|root|farm)/'
        # hosts of package registries
        '\b(deb|registry(-[0-9])?)[.][a-z0-9-]+[.](org|com|io)\b' '\b(pypi[.]org|crates[.]io)\b'
        # how the work is organised
        'spec[.]md' 'decisions[.]md' 'models[.]md' '\b[Tt]he [s]pec\b' '\b[Ss]pecification[s]?\b'
        '\bParts? [0-9]+[.][0-9]' '\b[Ss]ub-?[Aa]gents?\b'
    )
    git grep -nIE --untracked "${patterns[@]/#/-e}" && return 1 || status=$?
    files | tr '\0' '\n' | grep -E "${patterns[@]/#/-e}" && echo "(names of files)" && return 1
    ((status == 1)) # 1 is "nothing found"; more is git's own failure
}
