# bash completion of pimsm-agent, pimsm-show and pimsm-mfib: what their own --help lists.

# The options and commands in a help text.
_pimsm_words() {
   "$@" --help 2>/dev/null |
      sed -nE '
         /^(Subcommands|Commands):/,$ s/^  ([a-z][a-z-]*) .*/\1/p
         s/^  (-[0-9a-z]),?(--[a-z0-9-]+)?.*/\1\n\2/p
         s/^  (--[a-z0-9-]+).*/\1/p'
}

_pimsm() {
   local cur prev words cword command
   _init_completion || return
   case $prev in
      --root) _filedir -d; return ;;
      --config | --read | --output) _filedir; return ;;
      --interface | --iface | --iif)
         COMPREPLY=($(compgen -W "$(ls /sys/class/net 2>/dev/null)" -- "$cur"))
         return ;;
      --kind) COMPREPLY=($(compgen -W 'wc sg' -- "$cur")); return ;;
      --vrf) COMPREPLY=($(compgen -W 'all default' -- "$cur")); return ;;
      --router | --group | --source | --received | --failover | --counters) return ;;
   esac
   # pimsm-show has commands: the first word that is no option.
   command=
   [[ ${words[0]##*/} != pimsm-show || $cword -lt 2 || ${words[1]} == -* ]] ||
      command=${words[1]}
   COMPREPLY=($(compgen -W "$(_pimsm_words "${words[0]}" $command)" -- "$cur"))
} &&
   complete -F _pimsm pimsm-agent pimsm-show pimsm-mfib
