# bash completion for velmoractl: subcommands, their options, key names,
# application types, journal kinds, and the package names and uids that the
# running server knows.
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
        launch) words="WEBAPP WEBPAGE WEBBROWSER WEBGLAPP AIR AIRGL OTHER WFDPLAYER ANDROID --parameters --session --help" ;;
        windows) words="--session --help" ;;
        focus) words="--release --help $(velmoractl windows 2>/dev/null)" ;;
        params) words="--help $(velmoractl windows 2>/dev/null)" ;;
        state | terminate) words="--help $(velmoractl windows 2>/dev/null) $(velmoractl services 2>/dev/null)" ;;
        packages) words="--group --extended --manifest --help" ;;
        package) words="--extended --manifest --help $(velmoractl packages 2>/dev/null | cut -d' ' -f1)" ;;
        install) words="--force --timeout --help $(velmoractl packages --manifest 2>/dev/null | cut -d' ' -f1)" ;;
        remove) words="--force --timeout --help $(velmoractl packages 2>/dev/null | cut -d' ' -f1)" ;;
        key) words="Home Back Power Menu Up Down Left Right OK 0 1 2 3 4 5 6 7 8 9 --device --session --help" ;;
        journal)
            if [ "${COMP_WORDS[COMP_CWORD-1]}" = --kind ]; then
                words="started launch-failed put-off evicted terminate state focus runaway exited ended
                       service-failed boot-complete power package"
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
