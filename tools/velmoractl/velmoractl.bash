# bash completion for velmoractl: subcommands, their options, key names,
# application types, journal kinds, and the package names and uids that the
# running server knows (install: the packages offered and not installed). The
# key names, types and kinds come from the tool's own --help, so that they
# follow the tool.
_velmoractl()
{
    local cur=${COMP_WORDS[COMP_CWORD]} command="" word skip=""
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [ -n "$skip" ]; then skip=""; continue; fi
        case $word in
            --endpoint) skip=1 ;; # its value is no subcommand
            -*) ;;
            *) command=$word; break ;;
        esac
    done
    local words
    case $command in
        "") words="--endpoint --json --help launch windows focus state terminate params key services packages
                   package install remove notify watch call journal" ;;
        launch) words="--parameters --session --help
                       $(velmoractl launch --help 2>/dev/null | sed -n 's/.*Application type: //p' | tr -d ,)" ;;
        windows) words="--session --help" ;;
        focus) words="--release --help $(velmoractl windows 2>/dev/null)" ;;
        params) words="--help $(velmoractl windows 2>/dev/null)" ;;
        state | terminate) words="--help $(velmoractl windows 2>/dev/null) $(velmoractl services 2>/dev/null)" ;;
        packages) words="--group --extended --manifest --help" ;;
        package) words="--extended --manifest --help $(velmoractl packages 2>/dev/null | cut -d' ' -f1)" ;;
        install) # what the repository offers that is not installed yet
            words="--force --timeout --help $(comm -23 <(velmoractl packages --manifest 2>/dev/null | cut -d' ' -f1 | sort) \
                                                       <(velmoractl packages 2>/dev/null | cut -d' ' -f1 | sort))" ;;
        remove) words="--force --timeout --help $(velmoractl packages 2>/dev/null | cut -d' ' -f1)" ;;
        key) words="--device --session --help $(velmoractl key --help 2>/dev/null | sed -n 's/.* by name: //p')" ;;
        journal)
            if [ "${COMP_WORDS[COMP_CWORD-1]}" = --kind ]; then
                words=$(velmoractl journal --help 2>/dev/null | sed -n 's/.*--kind TEXT:{\(.*\)}.*/\1/p' | tr , ' ')
            else
                words="--follow --uid --since --kind --session --limit --help"
            fi ;;
        watch) words="IApplicationManager::onError IApplicationManager::onKeepAlive IApplicationManager::onStateChange
                      IServiceManager::onServiceListChange IWindowManager::onWindowListChange
                      IWindowManager::onFocusChange IPackageInstaller::onRequestEnd ILifecycleJournal::onEntry
                      VelmoraBox::window --help" ;;
        *) words="--help" ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -F _velmoractl velmoractl
