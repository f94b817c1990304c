SUMMARY = "Remote control of a television head-end module"
DESCRIPTION = "Answers the master's requests on TCP port 8001 from the board's files, scripts and \
two SQLite databases."
SECTION = "net"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=efaadd651470bb6696cb4f699af005d0"

DEPENDS = "sqlite3"
RRECOMMENDS:${PN} = "iproute2-ss"

# The tree that this layer is part of. A product that fetches its own copy sets EXTERNALSRC to
# nothing, and SRC_URI, SRCREV and S.
EXTERNALSRC ?= "${@os.path.realpath('${THISDIR}/../../../../..')}"

inherit cmake externalsrc features_check systemd

REQUIRED_DISTRO_FEATURES = "systemd"
# Tested with no other C library than glibc.
COMPATIBLE_HOST:libc-musl = "null"

# As the board runs it: small, and optimised as a whole; of the programs the daemon alone.
EXTRA_OECMAKE = " \
    -DCMAKE_BUILD_TYPE=MinSizeRel \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF \
    -DBUILD_TESTING=OFF \
    -DZONDAR_EXPORTER=OFF \
    -DZONDAR_TOOLS=OFF \
"

do_install:append() {
    install -D -m 0644 -t ${D}${sysconfdir}/default ${S}/packaging/default/zondar-net-receiver
    install -D -m 0755 -t ${D}${libexecdir}/zondar-net-receiver ${S}/packaging/libexec/*
    install -D -m 0644 -t ${D}${datadir}/zondar-net-receiver ${S}/packaging/systemd/strict.conf
    install -D -m 0644 -t ${D}${systemd_system_unitdir} \
        ${S}/packaging/systemd/zondar-net-receiver*.service \
        ${S}/packaging/systemd/zondar-net-receiver*.timer
}

# The timer is the operator's choice.
SYSTEMD_SERVICE:${PN} = "zondar-net-receiver.service"

FILES:${PN} += "${systemd_system_unitdir}"
CONFFILES:${PN} = "${sysconfdir}/default/zondar-net-receiver"
