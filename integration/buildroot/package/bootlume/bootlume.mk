################################################################################
#
# bootlume
#
################################################################################

BOOTLUME_VERSION = 1.1.0
BOOTLUME_SITE = $(BR2_EXTERNAL_BOOTLUME_PATH)/../..
BOOTLUME_SITE_METHOD = local
BOOTLUME_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
# No licence has been chosen yet, so nobody may redistribute it.
BOOTLUME_LICENSE = none chosen
BOOTLUME_REDISTRIBUTE = NO
BOOTLUME_SUPPORTS_IN_SOURCE_BUILD = NO
BOOTLUME_DEPENDENCIES = host-pkgconf boost cairo fontconfig
BOOTLUME_CONF_OPTS = \
	-DBOOTLUME_PREVIEW=OFF \
	-DBOOTLUME_TESTS=OFF \
	-DBOOTLUME_UNIT_DIR=/usr/lib/systemd/system \
	-DBOOTLUME_UDEV_DIR=/usr/lib/udev

ifeq ($(BR2_PACKAGE_BOOTLUME_CTL),y)
BOOTLUME_DEPENDENCIES += cli11 json-for-modern-cpp
BOOTLUME_CONF_OPTS += -DBOOTLUME_CLIENT=ON
else
BOOTLUME_CONF_OPTS += -DBOOTLUME_CLIENT=OFF
endif

ifeq ($(BR2_INIT_SYSTEMD),y)
BOOTLUME_CONF_OPTS += -DBOOTLUME_SYSTEMD=ON -DBOOTLUME_SYSV=OFF
else ifeq ($(BR2_INIT_NONE),y)
BOOTLUME_CONF_OPTS += -DBOOTLUME_SYSTEMD=OFF -DBOOTLUME_SYSV=OFF
else
BOOTLUME_CONF_OPTS += -DBOOTLUME_SYSTEMD=OFF -DBOOTLUME_SYSV=ON

# Behind the device manager, which is S10, and before all that takes time.
define BOOTLUME_NUMBER_SCRIPT
	mv $(TARGET_DIR)/etc/init.d/bootlume $(TARGET_DIR)/etc/init.d/S11bootlume
endef
BOOTLUME_POST_INSTALL_TARGET_HOOKS += BOOTLUME_NUMBER_SCRIPT
endif

# mdev makes no links by path; its first rule that fits is the last.
ifeq ($(BR2_ROOTFS_DEVICE_CREATION_DYNAMIC_MDEV),y)
define BOOTLUME_MDEV_RULE
	grep -q bootlume $(TARGET_DIR)/etc/mdev.conf || \
		$(SED) '1r $(@D)/packaging/init/mdev.conf' $(TARGET_DIR)/etc/mdev.conf
endef
BOOTLUME_TARGET_FINALIZE_HOOKS += BOOTLUME_MDEV_RULE
endif

$(eval $(cmake-package))
