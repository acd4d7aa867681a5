# The acquisition pair, for ./run: wfserver replays a recording, wfclient receives it, and the server is
# killed twice on the way. Needs common.sh and a built release.

bin=$top/build/release/bin
work=$top/build/acquisition

# start_server PORT OPTION...: starts a server in the background and waits until it listens.
start_server() {
    : >"$work/server.log"
    (cd "$work" && exec "$bin/wfserver" -p "$@" "${recording[@]}" 2> >(tee -a server.log >&2)) &
    server=$!
    for ((i = 0; i < 200; i++)); do
        port=$(sed -n 's/.*listening on port \([0-9]*\)$/\1/p' "$work/server.log")
        [ -n "$port" ] && return 0
        kill -0 "$server" 2>/dev/null || break
        sleep 0.05
    done
    return 1
}

# Ends the server by a signal, in silence.
end_server() {
    kill "-$1" "$server" 2>/dev/null
    wait "$server" 2>/dev/null
}

stop_all() {
    kill -KILL "$server" "$client" 2>/dev/null
    exit 130
}

draw() {
    (cd "$work" && "$bin/morva" ring plot -o "$@" >/dev/null) || fail "morva ring plot could not draw $1"
}

# acquisition FILE...: the story. What it said of numbers is in $received.
acquisition() {
    local seconds=6 client_status
    recording=("$@")
    rm -rf "$work"
    mkdir -p "$work"
    # The command lines are told below; messages go on.
    echo 'announce no' | tee "$work/wfserver.pf" >"$work/wfclient.pf"
    export PFPATH=$PFPATH:$work
    client= server=
    trap stop_all INT TERM

    say "replaying within $seconds seconds on loopback: wfserver -p 0 -d $seconds FILE..., in $work"
    if ! start_server 0 -d $seconds; then
        grep -q 'no waveforms to replay' "$work/server.log" && return 1
        fail "wfserver did not start; the lines above say why"
    fi
    say "receiving: wfclient localhost:$port"
    (cd "$work" && exec "$bin/wfclient" "localhost:$port" >report) &
    client=$!

    sleep 1.5
    say "ending the server by SIGTERM in the middle, and starting it again half a second later"
    end_server TERM
    sleep 0.5
    start_server "$port" -d $seconds || fail "wfserver did not start again; the lines above say why"

    sleep 1
    say "changing the codec while it runs: morva dc set wfserver codec cm6"
    "$bin/morva" dc set -C "$work" wfserver codec cm6 >/dev/null || fail "morva dc could not change the codec"
    sleep 0.5
    say "killing the server by SIGKILL, and starting it again half a second later"
    end_server KILL
    sleep 0.5
    start_server "$port" -d $seconds || fail "wfserver did not start again; the lines above say why"

    wait "$client"
    client_status=$?
    end_server TERM
    trap - INT TERM
    cat "$work/report"
    [ $client_status -eq 0 ] || fail "wfclient ended with status $client_status; its report is above"
    grep -q '^every packet came exactly once' "$work/report" || fail "the recording did not come whole; see the report above"
    received=$(sed -n 's/^\([0-9]* packets\), 0 came twice, 0 gaps, 0 damaged.*/\1/p' "$work/report")
    [ -n "$received" ] || fail "packets came twice or were left out; see the report above"

    draw latency.svg "$work/waveforms/latency.ring"
    draw amplitudes.svg "$work"/waveforms/*.*.ring
    say "drawn by morva ring plot: $work/latency.svg, $work/amplitudes.svg"
}
