################################################################################
#
# zondar-net-receiver
#
################################################################################

ZONDAR_NET_RECEIVER_VERSION = 1.0
# The tree that this folder is part of. A product sets site and method to those of its own copy.
ZONDAR_NET_RECEIVER_SITE ?= $(BR2_EXTERNAL_ZONDAR_PATH)/../..
ZONDAR_NET_RECEIVER_SITE_METHOD ?= local
ZONDAR_NET_RECEIVER_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
ZONDAR_NET_RECEIVER_LICENSE = MIT
ZONDAR_NET_RECEIVER_LICENSE_FILES = LICENSE
ZONDAR_NET_RECEIVER_DEPENDENCIES = sqlite
# As the board runs it: small, and optimised as a whole; of the programs the daemon alone.
ZONDAR_NET_RECEIVER_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=MinSizeRel \
	-DCMAKE_COMPILE_WARNING_AS_ERROR=OFF \
	-DBUILD_TESTING=OFF \
	-DZONDAR_EXPORTER=OFF \
	-DZONDAR_TOOLS=OFF

define ZONDAR_NET_RECEIVER_INSTALL_DEFAULTS
	$(INSTALL) -D -m 0644 $(@D)/packaging/default/zondar-net-receiver \
		$(TARGET_DIR)/etc/default/zondar-net-receiver
	$(INSTALL) -D -m 0755 -t $(TARGET_DIR)/usr/libexec/zondar-net-receiver \
		$(@D)/packaging/libexec/*
endef
ZONDAR_NET_RECEIVER_POST_INSTALL_TARGET_HOOKS += ZONDAR_NET_RECEIVER_INSTALL_DEFAULTS

define ZONDAR_NET_RECEIVER_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 -t $(TARGET_DIR)/usr/lib/systemd/system \
		$(@D)/packaging/systemd/zondar-net-receiver*.service \
		$(@D)/packaging/systemd/zondar-net-receiver*.timer
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/strict.conf \
		$(TARGET_DIR)/usr/share/zondar-net-receiver/strict.conf
endef

define ZONDAR_NET_RECEIVER_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(ZONDAR_NET_RECEIVER_PKGDIR)/S80zondar-net-receiver \
		$(TARGET_DIR)/etc/init.d/S80zondar-net-receiver
endef

$(eval $(cmake-package))
