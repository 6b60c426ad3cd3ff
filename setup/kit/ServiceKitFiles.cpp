// SPDX-License-Identifier: MIT
#include <setup/kit/KitFile.h>

#include <array>

namespace KSETUP {

namespace {

constexpr std::array serviceKitFiles = std::to_array<KKitFile>({
    {"install.ini",
     0644,
     R"(; How the product, a service, is installed and removed. A line is a rule, the rules run in the order of
; the lines, and the first that fails ends the run. Names between dollar signs are macros; "ins-setup macros"
; lists them, ins-script(5) tells the whole language. After each change: "ins-setup check".
;
; Commas separate the fields of a rule. Put no blank behind them: it would belong to the field.

[install]
; Where the product goes on a machine that does not have it yet, unless the setup program is told a
; path. The unit does not name it, so any path will do.
defaultPath.$os$=/opt/@SERVICE@

; 1. In an upgrade the service runs, and would go on as the former program. This stops it, and other than
; "stop" it does not fail where there is none yet.
service=remove,$serviceName$

; 2. A user of its own, so that the service can do no more than it needs to. A removal leaves the user.
user=create,@USER@,/var/lib/$serviceName$

; 3. Directories. The last one is for what the service writes, and nobody else may look into it.
directory=create,$pathTargetBin$
directory=create,$pathTargetConfig$
directory=create,/var/lib/$serviceName$
mode=set,/var/lib/$serviceName$,0750,@USER@,@USER@

; 4. The program, and the defaults of its configuration. The configuration itself belongs to the
; administrator: "put" makes it where it is missing.
file=copy,serve,$pathSource$payload,$pathTargetBin$
file=copy,$iniFile$,$pathSource$payload,$pathTargetConfig$,$iniFile$.default
profile=put,$pathTargetConfig$$iniFile$,Product,Defaults,$pathTargetConfig$$iniFile$.default

; 5. What "ins-setup kit add TREE" brings along; it writes to section [files] below.
section=files

; 6. The unit of the kit's own. It is no configuration though it lies in /etc: an administrator changes it
; by a drop-in, "systemctl edit @SERVICE@", which stays when this file is replaced.
config=replace,$serviceName$.service,$pathSource$payload,/etc/systemd/system

; 7. The link by which the product is found again, and by which the unit finds the program. It leads to a
; program three levels below the product path.
directory=create,/etc/$serviceName$
file=symlink,serve,$pathTargetBin$,/etc/$serviceName$,$serviceName$
; A unit that has to tell its program where the configuration is says
; "ExecStart=/etc/@SERVICE@/@SERVICE@ /etc/@SERVICE@/config/@INI@", and this line makes that link:
; link=create,$pathTargetConfig$,/etc/$serviceName$/config

; 8. Last, when all that the service needs is in its place.
service=install,$serviceName$
service=start,$serviceName$

; A removal undoes all this from the inside out. What the service has written stays.
[remove]
service=remove,$serviceName$
file=delete,$serviceName$.service,/etc/systemd/system
section=remove files
file=delete,serve,$pathTargetBin$
directory=delete,$pathTargetBin$
directory=delete,$pathTargetLin$
file=delete,$iniFile$,$pathTargetConfig$
file=delete,$iniFile$.default,$pathTargetConfig$
directory=delete,$pathTargetConfig$
directory=delete,$pathTarget$
directory=delete,/var/lib/$serviceName$
file=delete,$serviceName$.conf,/usr/lib/sysusers.d
; The link last: while it stands, a removal that was stopped can be repeated.
file=delete,$serviceName$,/etc/$serviceName$
directory=delete,/etc/$serviceName$

; Filled by "ins-setup kit add TREE".
[files]

[remove files]
)"},
    {"payload/@SERVICE@.service",
     0644,
     R"([Unit]
Description=@NAME@
After=network.target

[Service]
# The product's link leads to its program, wherever the product is.
ExecStart=/etc/@SERVICE@/@SERVICE@
User=@USER@
Restart=on-failure

# It may write to its own directory, and to nothing else.
WorkingDirectory=/var/lib/@SERVICE@
ReadWritePaths=/var/lib/@SERVICE@
UMask=0027
ProtectSystem=strict
ProtectHome=yes
PrivateTmp=yes
PrivateDevices=yes

# It gets no more rights than its user has, and what it does not need it cannot reach.
NoNewPrivileges=yes
CapabilityBoundingSet=
ProtectKernelTunables=yes
ProtectKernelModules=yes
ProtectControlGroups=yes
RestrictNamespaces=yes
RestrictRealtime=yes
RestrictSUIDSGID=yes
LockPersonality=yes
RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6
SystemCallArchitectures=native

[Install]
WantedBy=multi-user.target
)"},
    {"payload/serve", 0755, R"(#!/bin/sh
# The product: writes down every minute what its configuration tells it to say, until it is ended.
program=$(readlink -f "$0")
config=${program%/*}/../../config/@INI@
while :; do
    greeting=$(sed -n 's/^Greeting=//p' "$config" "$config.default" | head -n 1)
    echo "$(date -u +%FT%TZ) $greeting" >> greetings
    sleep 60 &
    wait $!
done
)"},
    {"payload/@INI@",
     0644,
     R"(; The settings of the service and their defaults. An upgrade replaces this file. To change a setting, put
; its line into @INI@ beside it.
[General]
Greeting=Hello, world.
)"},
});

} // namespace

std::span<const KKitFile> ServiceKitFiles() noexcept {
    return serviceKitFiles;
}

} // namespace KSETUP
