# What the tests need in a zsh: the completion, and keys that insert all that is offered and that
# report the line.
fpath=($SCRIPTS $fpath)
autoload -Uz compinit
compinit -D -u
PS1=
zle_bracketed_paste=()
unsetopt beep prompt_cr
bindkey '^I' complete-word # the usual one runs $(...) by itself, whatever is completed
bindkey '^U' backward-kill-line
bindkey '^E' end-of-line
zle -C all-matches complete-word _generic
bindkey '^Xa' all-matches
zstyle ':completion:all-matches:*' completer _all_matches _complete
zstyle ':completion:all-matches:*' insert yes
zstyle ':completion:*:hosts' hosts ${=HOSTS}
report() { print -rN -u $REPORTS -- "$BUFFER" }
zle -N report
bindkey '^Xl' report
