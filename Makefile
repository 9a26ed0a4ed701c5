# make demo   installs what is missing (Debian 12), builds the 64-bit preset
#             and renders the contact sheet and a demo clip into out/
# make test   builds the 64-bit and 32-bit presets and runs every test of both
# make package builds the Debian package build/native/reelfx_<version>_<arch>.deb
# (BUILD=build/other builds the same preset into another folder.)
PRESET := native
BUILD := build/$(PRESET)
JOBS := $(shell nproc 2>/dev/null || echo 2)
REELFX := $(BUILD)/reelfx

.PHONY: demo test deps tool package

demo: tool
	mkdir -p out
	$(REELFX) sheet -o out/sheet.png
	$(REELFX) render Lantern -p "Spot Radius=4@0,16@1" --span 0.5:2.5 -o out/demo.mp4

# The tool with the module and its companion library beside it, the frei0r
# plug-ins in $(BUILD)/frei0r-1/, the Kdenlive effect descriptions, the
# Shotcut filter folders and the GStreamer plug-in in $(BUILD)/gstreamer-1.0/.
INSTALLED := reelfx_tool frei0r_plugins kdenlive_effects_xml reelfx_host shotcut_filters_qml gstreelfx
tool: deps
	cmake --preset $(PRESET) -B $(BUILD)
	cmake --build $(BUILD) --target $(INSTALLED) -j $(JOBS)

# The Debian package, $(BUILD)/reelfx_<version>_<arch>.deb.
package: tool
	cd $(BUILD) && cpack

# Installs the Debian packages that are not there yet (apt-get, as root or
# through sudo).
deps:
	sh scripts/deps.sh

test:
	sh scripts/test.sh
