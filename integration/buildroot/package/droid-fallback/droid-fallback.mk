################################################################################
#
# droid-fallback
#
################################################################################

DROID_FALLBACK_VERSION = 6.0.1_r16
DROID_FALLBACK_SOURCE = DroidSansFallbackFull.ttf
DROID_FALLBACK_SITE = https://github.com/aosp-mirror/platform_frameworks_base/raw/android-$(DROID_FALLBACK_VERSION)/data/fonts
DROID_FALLBACK_LICENSE = Apache-2.0

define DROID_FALLBACK_EXTRACT_CMDS
	cp $(DROID_FALLBACK_DL_DIR)/$(DROID_FALLBACK_SOURCE) $(@D)/
endef

define DROID_FALLBACK_INSTALL_TARGET_CMDS
	$(INSTALL) -D -m 0644 $(@D)/$(DROID_FALLBACK_SOURCE) \
		$(TARGET_DIR)/usr/share/fonts/droid/$(DROID_FALLBACK_SOURCE)
endef

$(eval $(generic-package))
