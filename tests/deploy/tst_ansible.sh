#!/usr/bin/env bash
# Runs deploy/ansible/uninstall-brisvane.yml for real with ansible-playbook against
# localhost (connection local) over a sandbox installation: the staged product copied
# into the sandbox, run by an account of a user database of the test's own (the
# sandbox's run/passwd, see tests/common/private-run), with the removal script's
# stand-ins first on PATH.
#   tst_ansible.sh <source dir> <staged product dir>
# Exits 77 (skipped) without root or ansible-playbook.
set -euo pipefail
src=$1 staged=$2

[ "$(id -u)" -eq 0 ] || { echo "skipped: acting for another account needs root"; exit 77; }
command -v ansible-playbook >/dev/null || { echo "skipped: ansible-playbook is missing (tools/install-deps)"; exit 77; }

# The uninstaller keeps its machine-wide lock in /var/run: the whole play runs where the
# sandbox's run/ stands in for it.
if [ -z "${BV_PRIVATE_RUN:-}" ]; then
    sandbox=$(mktemp -d "$HOME/../ansible-XXXXXX")
    sandbox=$(cd "$sandbox" && pwd -P)
    mkdir "$sandbox/run"
    BV_PRIVATE_RUN=$sandbox exec "$src/tests/common/private-run" "$sandbox/run" bash "$0" "$@"
fi
sandbox=$BV_PRIVATE_RUN
chmod 755 "$sandbox"
product_pid=""
cleanup() {
    [ -n "$product_pid" ] && kill -9 "$product_pid" 2>/dev/null || true
    rm -rf "$sandbox"
}
trap cleanup EXIT
cd "$sandbox"

# alice used the product: keys, configuration, the product running as her.
home=$sandbox/homes/alice
printf 'root:x:0:0:root:/root:/bin/bash\nalice:x:4101:4101::%s:/bin/bash\n' "$home" >run/passwd
mount --bind run/passwd /etc/passwd
mkdir -p "$home/.bv2/pss" "$home/.config/Brisvane" "$home/Documents" Apps remote
echo "alice's key" >"$home/.bv2/pss/id.key"
echo >"$home/.config/Brisvane/Brisvane.conf"
cp -a "$home/.bv2" keys
chown -R 4101:4101 "$home"
cp -al "$staged" Apps/
setpriv --reuid=4101 --regid=4101 --clear-groups "$staged/Brisvane.app/Contents/MacOS/Brisvane" &
product_pid=$!

export ANSIBLE_LOCAL_TEMP=$sandbox/ansible-local ANSIBLE_REMOTE_TEMP=$sandbox/ansible-remote
export ANSIBLE_NOCOLOR=1 ANSIBLE_RETRY_FILES_ENABLED=0 ANSIBLE_HOST_KEY_CHECKING=0
echo "localhost ansible_connection=local ansible_python_interpreter=/usr/bin/python3" >inventory

play() { # <extra vars as JSON>
    ansible-playbook -i inventory "$src/deploy/ansible/uninstall-brisvane.yml" -e "$1" >play.log 2>&1
}
vars() { # <uninstaller arguments as a JSON list>
    cat <<JSON
{"brisvane_become": false,
 "uninstaller": "$sandbox/Apps/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac",
 "uninstaller_args": $1,
 "uninstaller_environment": {"BV_SANDBOX": "$sandbox", "PATH": "$src/tools/sandbox-bin:$PATH",
     "ASAN_OPTIONS": "${ASAN_OPTIONS:-}", "LSAN_OPTIONS": "${LSAN_OPTIONS:-}"},
 "report_dir": "$sandbox/remote", "reports_local": "$sandbox/reports"}
JSON
}
validate() { # <report>
    python3 -c 'import json,sys,jsonschema; jsonschema.validate(json.load(open(sys.argv[1])), json.load(open(sys.argv[2])))' \
        "$1" "$src/docs/report.schema.json"
}
fail() { echo "FAIL: $*"; sed 's/^/  | /' play.log; exit 1; }

# A host that fails: an account the machine does not know. The host fails with the
# exit code's meaning, and its report still comes home.
if play "$(vars '["--unattended", "--user", "mallory"]')"; then fail "an unknown user did not fail the host"; fi
grep -q "exited with 64 (bad command line): unknown user: mallory" play.log || fail "no reason given"
validate reports/localhost.json || fail "the report does not match its schema"
python3 -c 'import json; r=json.load(open("reports/localhost.json")); assert r["exitCode"]==64, r'
diff -r keys "$home/.bv2" || fail "a refused run changed the keys"

# The real removal.
rm -rf reports
play "$(vars '["--unattended", "--user", "alice"]')" || fail "the playbook failed"
validate reports/localhost.json || fail "the report does not match its schema"
python3 - <<'PY' || fail "unexpected report"
import json
r = json.load(open("reports/localhost.json"))
assert r["exitCode"] == 0 and r["message"] is None and not r["dryRun"], r
steps = {(s["step"], s["result"]) for s in r["steps"]}
assert ("quit", "done") in steps and ("deleteData", "done") in steps and ("removeInstallation", "done") in steps, steps
PY
grep -q "changed=1" play.log || fail "the run was not reported as a change"
[ ! -e "$home/.bv2" ] && [ ! -e "$home/.config/Brisvane" ] && [ ! -e Apps/Brisvane ] || fail "something was left"
diff -r keys/pss "$home"/Documents/pss_* || fail "the backup differs from the keys"
! kill -0 "$product_pid" 2>/dev/null || fail "the product still runs"
grep -q "will now delete" remote/brisvane-uninstall.log || fail "no log on the host"

# Again: nothing left to do, and the host is fine with that.
play "$(vars '["--unattended", "--user", "alice"]')" || fail "a second run failed"
echo "ok: the playbook removed Brisvane and fetched the report"
