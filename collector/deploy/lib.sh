# shellcheck shell=bash disable=SC2034  # used by the scripts that source it
# Where a deployment in a scratch directory has what, for the scripts that start, use and end it. To be sourced after
# dev/lib.sh, with the directory.

deployment=$(realpath -m -- "$1")
run=$deployment/run log=$deployment/log database=$deployment/db
store="postgresql:///tev?host=$run&user=collector"
postgres_bin=$(find /usr/lib/postgresql -path '*/bin/pg_ctl' -printf '%h\n' 2>/dev/null | sort -V | tail -n 1)

# Put before a command that has to be an ordinary user's. PostgreSQL refuses to be root's.
ordinary=()
[[ $(id -u) -ne 0 ]] || ordinary=(setpriv --reuid=nobody --regid=nogroup --clear-groups --inh-caps=-all)

# To be called with start or stop and options of pg_ctl.
control_database() {
    "${ordinary[@]}" "$postgres_bin/pg_ctl" --pgdata="$database" --log="$log/postgres.log" --wait --silent "$@"
}

control_nginx() {
    "${ordinary[@]}" /usr/sbin/nginx -q -e "$log/nginx.log" -p "$deployment" -c "$deployment/nginx.conf" "$@"
}

ask_database() {
    psql --dbname="$store" --no-psqlrc --quiet --no-align --tuples-only --set=ON_ERROR_STOP=1 "$@"
}
