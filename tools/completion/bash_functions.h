// What completes by the tables, in bash. with_prefix() replaces @COMMAND@.
#ifndef IXFS_COMPLETION_BASH_FUNCTIONS_H
#define IXFS_COMPLETION_BASH_FUNCTIONS_H

namespace completion
{

constexpr const char* bash_functions = R"(
# Takes the words up to the cursor. Bash parts them at "=" and ":", too; here a word ends at a blank.
@COMMAND@_words() {
    local line=${COMP_LINE:0:COMP_POINT} blanks word i
    for ((i = 0; i <= COMP_CWORD; i++)); do
        blanks=${line%%[![:space:]]*}
        line=${line:${#blanks}}
        word=${COMP_WORDS[i]}
        ((i < COMP_CWORD)) || word=$line
        line=${line:${#word}}
        if [[ $i -eq 0 || -n $blanks || $word == [\<\>]* || ${words[-1]} == *[\<\>] ]]; then
            words+=("$word")
        else
            words[-1]+=$word
        fi
    done
}

# Whether the option $1 may follow what is given.
@COMMAND@_may() {
    local other
    for other in ${not_with[$1]-}; do
        [[ $given != *" $other "* ]] || return 1
    done
    [[ -z ${after[$1]-} || $given == *" ${after[$1]} "* ]]
}

# Offers those of the words $2... that begin with $1, which may begin with a quote.
@COMMAND@_offer() {
    local begin=${1#[\"\']} word
    for word in "${@:2}"; do
        [[ $word != "$begin"* ]] || COMPREPLY+=("$prefix$word")
    done
}

# Offers values of the kind $1 that begin with $2. Bash completes names of files by itself, and quotes
# them.
@COMMAND@_value() {
    local -a all=()
    local host
    case $1 in
    file) compopt -o default ;;
    folder) compopt -o dirnames ;;
    choice*)
        read -ra all <<<"${1#choice}"
        @COMMAND@_offer "$2" "${all[@]}"
        ;;
    host)
        while read -r host; do
            [[ ! $host =~ ^[[:alnum:]][[:alnum:]._-]*$ ]] || all+=("$host")
        done < <(compgen -A hostname)
        @COMMAND@_offer "$2" "${all[@]}"
        ;;
    esac
}

# Reads the words before the last one.
@COMMAND@_scan() {
    local word name redirection='^[0-9]*[<>&|]+$'
    for word in "${words[@]:1:${#words[@]}-2}"; do
        if [[ -n $awaited ]]; then
            awaited=''
        elif [[ $word =~ $redirection ]]; then
            awaited='file'
        elif [[ -n $ended || $word != -?* ]]; then
            if [[ -z $ended && " ${subcommands[*]} " == *" $word "* ]]; then
                given=' '
                @COMMAND@_table "$word"
            else
                given+='argument '
            fi
        elif [[ $word == -- ]]; then
            ended=yes
        elif name=${word%%=*} && [[ " ${options[*]} " == *" $name "* ]]; then
            if [[ -n ${value[$name]-} && $word != *=* ]]; then
                awaited='text'
                ! @COMMAND@_may "$name" || awaited=${value[$name]}
            fi
            given+="$name "
        fi
    done
}

@COMMAND@() {
    local IFS=$' \t\n' prefix='' awaited='' ended='' given=' ' current name
    local -a words=() options=() subcommands=()
    local -A value=() not_with=() after=()
    COMPREPLY=()
    @COMMAND@_words
    @COMMAND@_table ''
    @COMMAND@_scan
    current=${words[-1]}
    if [[ -n $awaited ]]; then
        @COMMAND@_value "$awaited" "$current"
        return
    fi
    if [[ -z $ended && $current == --*=* ]]; then
        name=${current%%=*}
        # Bash replaces what stands behind a break or a quote.
        [[ $COMP_WORDBREAKS == *=* || $current == *=[\"\']* ]] || prefix=$name=
        ! @COMMAND@_may "$name" || @COMMAND@_value "${value[$name]-}" "${current#*=}"
        return
    fi
    if [[ $current != -?* || -n $ended ]]; then
        [[ -n $ended ]] || @COMMAND@_offer "$current" "${subcommands[@]}"
        ! @COMMAND@_may argument || @COMMAND@_value "${value[argument]-}" "$current"
    fi
    if [[ -z $ended && ($current == -* || (-z $current && ${#COMPREPLY[@]} -eq 0)) ]]; then
        for name in "${options[@]}"; do
            ! @COMMAND@_may "$name" || @COMMAND@_offer "$current" "$name"
        done
    fi
}
)";

} // namespace completion

#endif
