#!/bin/bash
# Runs as root in a clean root with its own systemd and the packages installed: sets up a machine as an administrator
# would and checks each result. Writes its steps to /result; the last line is "PASSED" or the failure.
exec >/result 2>&1
set -uo pipefail
export LC_ALL=C.UTF-8

fail() {
    printf 'FAILED: %s\n' "$*"
    journalctl --no-pager -u vkservice -u 'vkprocesses@*'
    exit 1
}
expect() { # STATUS TEXT COMMAND...: the command ends so and says so
    local status=0 out
    out=$("${@:3}" 2>&1) || status=$?
    if [ "$status" -ne "$1" ] || [[ $out != *"$2"* ]]; then
        fail "$(printf '%s\nstatus %s, wanted %s with "%s":\n%s' "${*:3}" "$status" "$1" "$2" "$out")"
    fi
    echo "ok: ${*:3}"
}
as_somebody() { setpriv --reuid=somebody --regid=somebody "$@"; }

expect 3 "disabled" systemctl --no-pager status vkservice
mkdir -p /srv/tool/bin
printf '#!/bin/sh\necho it works\n' >/srv/tool/bin/tool
chmod +x /srv/tool/bin/tool
expect 0 "Root for clients" vkpublish init /srv/updates --no-passphrase
expect 0 "Added" vkpublish add /srv/updates /srv/tool --name tool --version 1.0
expect 0 "Published" vkpublish publish /srv/updates
cp /srv/updates/metadata/1.root.json /etc/vk/root.json
useradd --create-home somebody
groupadd --system updaters

# The unit, and rkm as root.
expect 0 "" systemctl enable --now vkservice
expect 0 "StatusText=Ready" systemctl show -p StatusText vkservice
expect 0 "successfully applied" rkm update-settings --server=/srv/updates
expect 0 "Update finished: 1 package was updated." rkm update --quiet
expect 0 "Name: tool" rkm install-log
expect 0 "it works" /opt/vk/current/tool/bin/tool
expect_owners() { # USER: of all files of the service
    local others
    others=$(find /opt/vk /var/lib/vkservice ! -user "$1")
    [ -z "$others" ] || fail "not of $1: $others"
    echo "ok: all of $1"
}
expect 0 "vkservice" stat -c %U "/proc/$(systemctl show -p MainPID --value vkservice)"
expect_owners vkservice

# It has no right of root; vkprocesses sees for it which programs run and what is in use, and tells nobody else.
main_status() { cat "/proc/$(systemctl show -p MainPID --value vkservice)/status"; }
expect 0 $'CapPrm:\t0000000000000000' main_status
expect 0 $'CapBnd:\t0000000000000000' main_status
expect 0 "vkservice 600" stat -c '%U %a' /run/vkprocesses.socket
expect 1 "Permission denied" as_somebody --clear-groups bash -c 'exec 3<>/run/vkprocesses.socket' # a socket
cp /bin/sleep /srv/tool/bin/waiter
release() { # VERSION
    expect 0 "Added" vkpublish add /srv/updates /srv/tool --name tool --version "$1" --kind application --executable bin/waiter
    expect 0 "Published" vkpublish publish /srv/updates
}
release 1.1
expect 0 "1 package was updated." rkm update --quiet
old=$(readlink -f /opt/vk/current/tool)
setpriv --reuid=somebody --regid=somebody --clear-groups /opt/vk/current/tool/bin/waiter 600 &
release 1.2
expect 0 "successfully applied" rkm update-settings --config-var=update.waitForApps:2
expect 109 "applications were running: tool (process waiter, $!)" rkm update --quiet
expect 0 "active" systemctl is-active 'vkprocesses@*'
vkprocesses_status() { cat "/proc/$(systemctl show -p MainPID --value 'vkprocesses@*')/status"; }
expect 0 $'CapBnd:\t0000000000080000' vkprocesses_status
expect 0 $'Seccomp:\t2' vkprocesses_status
kill $! && wait
expect 0 "1 package was updated." rkm update --quiet
(cd "$old" && exec setpriv --reuid=somebody --regid=somebody --clear-groups sleep 600) &
for version in 1.3 1.4 1.5; do
    release "$version"
    expect 0 "1 package was updated." rkm update --quiet
done
[ -d "$old" ] || fail "$old was removed while it was in use"
kill $! && wait
# Without it updates go on: what is in use is then what the service sees, or what nobody can say.
expect 0 "" systemctl stop vkprocesses.socket 'vkprocesses@*'
release 1.6
expect 0 "1 package was updated." rkm update --quiet
[ -d "$old" ] || fail "$old was removed while nobody could say whether it was in use"
expect 0 "" systemctl mask vkprocesses.socket
expect 0 "" systemctl restart vkservice
expect 0 "sees only the programs of its own user" journalctl --no-pager -u vkservice
[ ! -d "$old" ] || fail "$old is left"
expect 0 "" systemctl unmask vkprocesses.socket
expect 0 "" systemctl restart vkservice
expect 0 "active" systemctl is-active vkprocesses.socket

# It gets a password from systemd.
mkdir -m 700 /etc/vk-secrets /etc/systemd/system/vkservice.service.d
echo secret >/etc/vk-secrets/mail
printf '[Service]\nLoadCredential=mail.password:/etc/vk-secrets/mail\n' >/etc/systemd/system/vkservice.service.d/mail.conf
expect 0 "" systemctl daemon-reload
expect 0 "" systemctl restart vkservice
expect 0 "mail.password: ******" rkm show-settings --config-var=mail.password

# A worker of root, without the service: nothing of it is root's. The service goes on with what it has left.
expect 0 "" systemctl stop vkservice.socket vkservice
expect 0 "" rkm update --quiet
expect 0 "vkservice" stat -c %U /run/vkservice /var/log/vkc_log/vkservice.log
expect_owners vkservice
expect 0 "" systemctl start vkservice.socket
expect 0 "Default server: /srv/updates" rkm show-settings

# A mirror in its unit, and a machine that uses it.
cp /srv/updates/metadata/1.root.json /etc/vk/mirror/site.root.json
echo URL=/srv/updates >/etc/vk/mirror/site.conf
expect 0 "" systemctl enable --now vkpublish-mirror@site.timer
expect 0 "" systemctl start vkpublish-mirror@site
expect 0 "Mirrored 7 packages" journalctl --no-pager -u vkpublish-mirror@site
expect 0 "vkmirror" stat -c %U /var/lib/vkmirror/site/metadata/timestamp.json
expect 0 "successfully applied" rkm update-settings --server=/var/lib/vkmirror/site
expect 0 "All packages are up to date." rkm update --quiet
expect 0 "successfully applied" rkm update-settings --server=/srv/updates

# The nightly job in its unit, with two of the keys. The publisher goes on above it.
install -d -m 700 /var/lib/vkrefresh/site
cp /srv/updates.keys/timestamp-*.pem /srv/updates.keys/snapshot-*.pem /var/lib/vkrefresh/site
expect 0 "for \"vkpublish refresh\" alone" vkpublish recover /srv/updates --refresh-only --keys /var/lib/vkrefresh/site \
    --root /etc/vk/mirror/site.root.json
chown -R vkrefresh: /var/lib/vkrefresh/site
chgrp vkrefresh /srv/updates/metadata
chmod g+w /srv/updates/metadata
echo DIR=/srv/updates >/etc/vk/refresh/site.conf
expect 0 "" systemctl enable --now vkpublish-refresh@site.timer
expect 0 "" systemctl start vkpublish-refresh@site
expect 0 "Refreshed the timestamp, valid until" journalctl --no-pager -u vkpublish-refresh@site
expect 0 "vkrefresh" stat -c %U /srv/updates/metadata/timestamp.json
expect 0 "All packages are up to date." rkm update --quiet
expect 0 "Published" vkpublish publish /srv/updates
expect 0 "" systemctl start vkpublish-refresh@site
expect 0 "The repository is valid" vkpublish verify /srv/updates
rm -r /var/lib/vkrefresh/site

# Another user: no settings, but the log; the message names the right socket.
expect 1 "Please check the permissions of /run/vkservice" as_somebody --clear-groups rkm show-settings --socket=/run/vkservice/socket
expect 0 "Name: tool" as_somebody --clear-groups rkm install-log

# A reload reads the configuration. After a restart of the socket, and with it of the service, the group's members may
# connect.
printf '[service]\nsocketGroup = "updaters"\nschedule.jitter = 60\n' >/etc/vk/vk.cfg
expect 0 "" systemctl reload vkservice
expect 0 "active" systemctl is-active vkservice
expect 0 "schedule.jitter: 60" rkm show-settings --config-var=schedule.jitter
mkdir /etc/systemd/system/vkservice.socket.d
printf '[Socket]\nSocketGroup=updaters\nSocketMode=0660\n' >/etc/systemd/system/vkservice.socket.d/group.conf
expect 0 "" systemctl daemon-reload
expect 0 "" systemctl restart vkservice.socket
expect 0 "Default server: /srv/updates" as_somebody --groups=updaters rkm show-settings
expect 1 "Connection to the service failed" as_somebody --clear-groups rkm show-settings --socket=/run/vkservice/socket

# A killed service is restarted with its state.
expect 0 "successfully applied" rkm update-schedule-settings --mode=automatic --interval=1d
systemctl kill --signal=KILL vkservice
for _ in $(seq 100); do
    [ "$(systemctl show -p NRestarts --value vkservice)" = 1 ] && systemctl -q is-active vkservice && break
    sleep 0.2
done
expect 0 "Automatic installation mode: Automatic updates" rkm show-schedule-settings
expect 0 "Last result" rkm service-status

# The socket stays and starts the service for the next client. An upgrade enables both if they were not.
expect 0 "" systemctl stop vkservice
expect 0 "Result=success" systemctl show -p Result vkservice
expect 0 "Default server: /srv/updates" rkm show-settings
expect 0 "active" systemctl is-active vkservice
rm /etc/systemd/system/sockets.target.wants/vk{service,processes}.socket
expect 0 "" dpkg -i /packages/vkservice_*.deb
expect 0 $'enabled\nenabled' systemctl is-enabled vkservice.socket vkprocesses.socket

# Back to a version that runs as root, and an upgrade from it, which fails on the way and is repeated. Files of others and
# the targets of links stay as they are.
dpkg-deb -R /packages/vkservice_*.deb /tmp/old
sed -i 's/^Version: .*/Version: 0.9/' /tmp/old/DEBIAN/control
rm /tmp/old/DEBIAN/p*
expect 0 "" dpkg-deb -b /tmp/old /tmp/old.deb
expect 0 "" dpkg -i /tmp/old.deb
expect_owners root
chmod 600 /etc/vk/vk.cfg
echo precious >/etc/precious
ln -s /etc/precious /opt/vk/packages/link
systemctl start vkservice.socket
exec 9</var/lib/vkservice/state.lock
flock 9
expect 1 "is using the state directory" dpkg -i /packages/vkservice_*.deb
expect_owners root
exec 9<&-
chown vkservice /opt/vk/packages
expect 0 "" dpkg --configure vkservice
expect_owners vkservice
expect 0 "root root" stat -c '%U %G' /etc/precious
expect 0 "root vkservice 640" stat -c '%U %G %a' /etc/vk/vk.cfg
expect 0 "active" systemctl is-active vkservice.socket
expect 0 "" rkm update --quiet

# A user that the configuration does not safely name is nobody's, and the service says so.
chmod 664 /etc/vk/service.cfg
systemctl stop vkservice.socket vkservice
expect 1 "service.user" setpriv --reuid=vkservice --regid=vkservice --clear-groups \
    env STATE_DIRECTORY=/var/lib/vkservice vkservice
chmod 644 /etc/vk/service.cfg
printf '[service]\nuser = "root"\n' >/etc/vk/vk_user.cfg
expect 0 "service.user is root" vkservice --hand-over
rm /etc/vk/vk_user.cfg
expect 0 "1.2 OK" systemd-analyze security --no-pager vkservice
expect 0 "0.8 SAFE" systemd-analyze security --no-pager vkprocesses@.service
DEBIAN_FRONTEND=noninteractive expect 0 "" apt-get purge -y -qq rkm vkservice vkpublish libvkcore-dev libvkcore1
for left in /usr/bin/rkm /usr/bin/vkservice /usr/lib/libvkcore.so.1 /usr/share/rkm /var/lib/vkservice /var/lib/vkmirror /run/vkservice \
    /etc/systemd/system/*/vkpublish-*@* /var/lib/vkrefresh \
    /etc/systemd/system/*/vkservice.* /var/lib/systemd/deb-systemd-helper-enabled/vkservice.* \
    /run/vkprocesses.socket /etc/systemd/system/*/vkprocesses.*; do
    if [ -e "$left" ] || [ -L "$left" ]; then
        fail "$left is left behind"
    fi
done
expect 0 "it works" /opt/vk/current/tool/bin/tool
echo PASSED
