SUMMARY = "Boot splash for a portrait V4L2 output overlay"
DESCRIPTION = "Draws a title, lines of text and a turning ring on the overlay of a 480x800 display while a \
device starts, until another program ends it."
SECTION = "base"
# No licence has been chosen yet.
LICENSE = "CLOSED"

DEPENDS = "boost cairo"

# A checkout of the tree that this layer lies in. An image is built from a commit of it.
BOOTLUME_BRANCH ?= "main"
SRC_URI = "git://${BOOTLUME_SOURCE};protocol=file;branch=${BOOTLUME_BRANCH}"
SRCREV ?= "${AUTOREV}"
PV .= "+git"

inherit cmake pkgconfig systemd update-rc.d

PACKAGECONFIG ??= "client ${@bb.utils.filter('DISTRO_FEATURES', 'systemd sysvinit', d)}"
PACKAGECONFIG[client] = "-DBOOTLUME_CLIENT=ON,-DBOOTLUME_CLIENT=OFF,cli11 nlohmann-json"
PACKAGECONFIG[preview] = "-DBOOTLUME_PREVIEW=ON,-DBOOTLUME_PREVIEW=OFF,libsdl2 chafa libwebp fontconfig icu glib-2.0 libcsv gettext cli11 nlohmann-json"
PACKAGECONFIG[systemd] = "-DBOOTLUME_SYSTEMD=ON,-DBOOTLUME_SYSTEMD=OFF"
PACKAGECONFIG[sysvinit] = "-DBOOTLUME_SYSV=ON,-DBOOTLUME_SYSV=OFF"

EXTRA_OECMAKE = "\
    -DBOOTLUME_TESTS=OFF \
    -DBOOTLUME_UNIT_DIR=${systemd_system_unitdir} \
    -DBOOTLUME_UDEV_DIR=${nonarch_base_libdir}/udev \
"

SYSTEMD_SERVICE:${PN} = "bootlume.service"
# Behind the device manager, which is 04.
INITSCRIPT_NAME = "bootlume"
INITSCRIPT_PARAMS = "start 05 S . stop 20 0 6 ."

PACKAGES =+ "${PN}-preview"
FILES:${PN}-preview = "${bindir}/bootlume-preview ${libdir}/bootlume ${datadir}/bootlume/catalogue.tsv"
FILES:${PN} += "\
    ${systemd_system_unitdir} \
    ${nonarch_base_libdir}/udev/rules.d \
    ${nonarch_libdir}/tmpfiles.d \
    ${datadir}/bash-completion \
    ${datadir}/bootlume \
"
CONFFILES:${PN} = "${sysconfdir}/default/bootlume"

RDEPENDS:${PN} = "fontconfig"
RRECOMMENDS:${PN} = "ttf-liberation-sans-narrow ttf-dejavu-sans ttf-droid-sans-fallback"
# An image takes it by SPLASH = "bootlume".
RPROVIDES:${PN} = "virtual-psplash"
