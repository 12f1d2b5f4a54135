# Stub of OpenWrt's package.mk: KernelPackage and BuildPackage check what
# a recipe must give and collect the packages; "make check-recipe" prints
# them and expands every build step (make -n).
jix_fields = $(foreach f,$(2),$(if $(strip $($(f))),,$(error $(1): no $(f))))

define KernelPackage
$(eval TITLE:=)$(eval FILES:=)$(eval SUBMENU:=)$(eval AUTOLOAD:=)
$(eval $(KernelPackage/$(1)))
$(call jix_fields,kmod-$(1),TITLE FILES SUBMENU AUTOLOAD)
$(if $(KernelPackage/$(1)/description),,$(error kmod-$(1): no description))
jix_pkgs += kmod-$(1)
jix_files += $(FILES)
endef

define BuildPackage
$(eval TITLE:=)$(eval SECTION:=)$(eval CATEGORY:=)
$(eval $(Package/$(1)))
$(call jix_fields,$(1),TITLE SECTION CATEGORY)
$(if $(Package/$(1)/install),,$(error $(1): no install step))
$(if $(Package/$(1)/description),,$(error $(1): no description))
jix_pkgs += $(1)
jix_installs += $(1)
endef

.PHONY: check-recipe prepare compile install
check-recipe:
	@echo "packages: $(jix_pkgs)"
	@echo "module files: $(jix_files)"
	@echo "version: $(PKG_VERSION)"
prepare:
	$(Build/Prepare)
compile:
	$(Build/Compile)
install:
	$(foreach p,$(jix_installs),$(call Package/$(p)/install,/tmp/openwrt-stub/ipkg-$(p)))
