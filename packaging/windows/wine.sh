# Sourced by scripts that run the programs built for Windows:
#
#   wine_begin [SDK]   makes a Windows of our own; programs find the libraries of that SDK
#   wine_end           ends all that runs in it, and removes it
#
# $wine_folder is a scratch folder that goes with it.

wine_begin() {
    # A short name, since that of the temporary directory in it becomes part of the names of sockets and files.
    wine_folder=$(mktemp -d)
    # What a test that is killed leaves behind goes too, such as the folder of its sound server.
    export TMPDIR=$wine_folder
    export WINEPREFIX=$wine_folder/prefix WINEDEBUG=-all
    export WINEPATH=
    [ $# -eq 0 ] || WINEPATH="Z:$(printf '%s' "$1/bin" | tr / '\\')"
    # Names of files that are not ASCII need it; the display and the proxies of this machine are not meant for us.
    export LC_ALL=C.UTF-8
    unset DISPLAY WAYLAND_DISPLAY http_proxy https_proxy all_proxy no_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY NO_PROXY
    # A sound device that swallows everything; tests of the sound have one to record: tests/support/servers/wine_with_sound.
    printf '</usr/share/alsa/alsa.conf>\npcm.!default { type null }\nctl.!default { type null }\n' \
        >"$wine_folder/asound.conf"
    export ALSA_CONFIG_PATH=$wine_folder/asound.conf
    unset PULSE_SERVER

    # The first program makes the prefix, without our streams: its services would hold them open. Another one stays,
    # so that nobody waits for the services again; it ends with the pipe.
    wine cmd /c exit </dev/null >/dev/null 2>&1
    mkfifo "$wine_folder/pipe"
    exec 8<>"$wine_folder/pipe"
    wine cmd <"$wine_folder/pipe" 8<&- >/dev/null 2>&1 &
}

wine_end() {
    exec 8<&-
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    rm -rf "$wine_folder"
    unset TMPDIR
}
