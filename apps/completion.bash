# bash completion of pimsm-agent, pimsm-show, pimsm-mfib, pimsm-record and pimsm-fleet: what their own --help lists.

# The options and commands in a help text.
_pimsm_words() {
   "$@" --help 2>/dev/null |
      sed -nE '
         /^(Subcommands|Commands):/,$ s/^  ([a-z][a-z-]*) .*/\1/p
         s/^  (-[0-9a-z]),?(--[a-z0-9-]+)?.*/\1\n\2/p
         s/^  (--[a-z0-9-]+).*/\1/p'
}

_pimsm() {
   local cur prev words cword command i
   _init_completion || return
   case $prev in
      --root) _filedir -d; return ;;
      --config | --check-config | --read | --output | --metrics) _filedir; return ;;
      --interface | --iface | --iif)
         COMPREPLY=($(compgen -W "$(ls /sys/class/net 2>/dev/null)" -- "$cur"))
         return ;;
      --store) COMPREPLY=($(compgen -W 'sqlite:' -- "$cur")); compopt -o nospace; return ;;
      --by)
         if [[ ${words[0]##*/} == pimsm-fleet ]]; then
            COMPREPLY=($(compgen -W 'rate packets routers' -- "$cur"))
         else
            COMPREPLY=($(compgen -W 'packets bits' -- "$cur"))
         fi
         return ;;
      --sort) COMPREPLY=($(compgen -W 'group packets rate' -- "$cur")); return ;;
      --kind) COMPREPLY=($(compgen -W 'wc sg' -- "$cur")); return ;;
      --vrf)
         COMPREPLY=($(compgen -W "all
            $(ls /dev/shm/pimsm/routing/pim/sparsemode/status 2>/dev/null)" -- "$cur"))
         return ;;
      --router | --group | --source | --macro | --received | --failover | --counters | \
         --interval | --first | --listen | --keep | --keep-bytes | --sample | --top | --since | \
         --until | --to | --from)
         return ;;
   esac
   # Some have commands: the first word that is no option, nor an option's value.
   command=
   if [[ ${words[0]##*/} == pimsm-@(show|fleet) ]]; then
      for ((i = 1; i < cword; i++)); do
         case ${words[i]} in
            --root | --store | --router | --vrf | --group | --source | --iface | --iif | --kind | \
               --sort | --interval)
               ((i++))
               [[ ${words[i]} != = ]] || ((i++)) ;;
            -*) ;;
            *) command=${words[i]}; break ;;
         esac
      done
   fi
   COMPREPLY=($(compgen -W "$(_pimsm_words "${words[0]}" $command)" -- "$cur"))
} &&
   complete -F _pimsm pimsm-agent pimsm-show pimsm-mfib pimsm-record pimsm-fleet
