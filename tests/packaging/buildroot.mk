# Stands for Buildroot around the external tree: prints what the package sets, and for whom.
#   make -f buildroot.mk BR2_EXTERNAL_DUNMALLOW_PATH=FOLDER BR2_PACKAGE_...=...
qstrip = $(strip $(subst ",,$(1)))
pkgname = $(lastword $(subst /, ,$(dir $(lastword $(MAKEFILE_LIST)))))
cmake-package = $(eval PACKAGES += $(pkgname))
.DEFAULT_GOAL = values

include $(BR2_EXTERNAL_DUNMALLOW_PATH)/external.mk

.PHONY: values
values:
	@: $(foreach name,$(filter DUNMALLOW_% PACKAGES,$(.VARIABLES)),$(info $(name)=$($(name))))
