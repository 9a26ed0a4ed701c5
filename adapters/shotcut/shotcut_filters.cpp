// Writes Shotcut's filter folders for the frei0r plug-ins, one folder per
// effect holding meta.qml (name, keywords, MLT service, keyframable
// parameters) and ui.qml (the panel), from the module's own catalogue and
// parameter declarations (run as a build step):
//
//   shotcut_filters <module> <output folder>
//
// The plug-ins take numbers as 0..1 over the declared bounds; the panel shows
// the declared units (min + v * (max - min)) and frame-size bounds follow the
// project's profile. A new filter gets Progress keyframed 0 at the clip's
// start and 1 at its end. Nothing here sets MLT's `threads` property: slicing
// one frame between threads would break the effects that read beyond a
// pixel's own row.
#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/names.h"

namespace {

std::string number(double v) {
    char text[40];
    const auto [end, ec] = std::to_chars(text, text + sizeof text, v);
    return ec == std::errc() ? std::string(text, end) : "0";
}

// A QML single-quoted string literal.
std::string quoted(const std::string& s) {
    std::string out = "'";
    for (const char c : s) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

// "Multi-Prism Lens" -> "multi_prism_lens": the plug-in file's name.
std::string slug(const std::string& name) { return reelfx::effectSlug(name, '_'); }

// What a panel row needs: the frei0r name, and for numbers the shown bounds
// (a QML expression for those that follow the profile's frame size).
struct Row {
    reelfx::ParameterInfo p;
    std::string maximum;  // QML expression
    int decimals = 2;
};

std::vector<Row> rowsOf(const reelfx::Module& module, const reelfx::EffectInfo& effect) {
    const reelfx::Instance small(module, effect.index, 64, 48), large(module, effect.index, 80, 96);
    const std::vector<reelfx::ParameterInfo> a = small.parameters(), b = large.parameters();
    std::vector<Row> rows;
    for (size_t j = 0; j < a.size(); ++j) {
        Row r{a[j], number(a[j].maximum), a[j].kind == kParameterKindWhole ? 0 : 2};
        if (j < b.size() && a[j].maximum != b[j].maximum) {
            r.maximum = a[j].maximum == 48 ? "profile.height" : "profile.width";
        }
        if (a[j].kind == kParameterKindReal && a[j].maximum - a[j].minimum <= 2) r.decimals = 3;
        rows.push_back(r);
    }
    return rows;
}

std::string keywords(const reelfx::EffectInfo& effect) {
    std::string k = "reelfx";
    std::string tag;
    for (const char c : effect.tags + ",") {
        if (c != ',') {
            tag += c;
            continue;
        }
        if (!tag.empty() && tag != "*") k += " " + tag;
        tag.clear();
    }
    return k;
}

std::string metaQml(const reelfx::EffectInfo& effect, const std::vector<Row>& rows) {
    std::string simple, params;
    auto keyframable = [&](const std::string& name) {
        simple += (simple.empty() ? "" : ", ") + quoted(name);
        params += std::string(params.empty() ? "" : ",\n") + "            Parameter {\n" +
                  "                name: " + quoted(name) + "\n" +
                  "                property: " + quoted(name) + "\n" +
                  "                isCurve: true\n                minimum: 0\n" +
                  "                maximum: 1\n            }";
    };
    for (const Row& r : rows) {
        if (r.p.kind == kParameterKindReal || r.p.kind == kParameterKindWhole)
            keyframable(r.p.name);
    }
    keyframable("Progress");
    const std::string s = slug(effect.name);
    return "import QtQuick 2.0\nimport org.shotcut.qml 1.0\n\nMetadata {\n"
           "    type: Metadata.Filter\n"
           "    objectName: " +
           quoted("reelfx_" + s) +
           "\n"
           "    name: " +
           quoted("reelfx: " + effect.name) +
           "\n"
           "    keywords: " +
           quoted(keywords(effect)) +
           "\n"
           "    mlt_service: " +
           quoted("frei0r.reelfx_" + s) +
           "\n"
           "    qml: 'ui.qml'\n\n"
           "    keyframes {\n        allowAnimateIn: true\n        allowAnimateOut: true\n"
           "        simpleProperties: [" +
           simple +
           "]\n"
           "        parameters: [\n" +
           params + "\n        ]\n    }\n}\n";
}

// A colour as Shotcut's colour picker and MLT write it: "#AARRGGBB".
std::string initialColour(const Row& r) {
    char text[16];
    std::snprintf(text, sizeof text, "#%08X", static_cast<unsigned>(r.p.initial));
    return text;
}

// The value the plug-in stores for a parameter's initial value (0..1 for
// numbers, the text for choices).
std::string storedInitial(const Row& r) {
    switch (r.p.kind) {
        case kParameterKindChoice: return quoted(r.p.choices.at(static_cast<size_t>(r.p.initial)));
        case kParameterKindColour: return quoted(initialColour(r));
        default: {
            const double range = r.p.maximum - r.p.minimum;
            return r.maximum.rfind("profile.", 0) == 0
                       ? number(r.p.initial - r.p.minimum) + " / (" + r.maximum + " - " +
                             number(r.p.minimum) + ")"
                       : number(range > 0 ? (r.p.initial - r.p.minimum) / range : 0.0);
        }
    }
}

// One row of the panel: label, control, undo and (numbers) keyframes button.
std::string controlRow(const Row& r, size_t j) {
    const std::string id = "p" + std::to_string(j);
    const std::string name = quoted(r.p.name);
    std::string x = "        Label {\n            text: " + quoted(r.p.name) +
                    "\n            Layout.alignment: Qt.AlignRight\n        }\n";
    if (r.p.kind == kParameterKindChoice) {
        std::string model;
        for (const std::string& c : r.p.choices) model += (model.empty() ? "" : ", ") + quoted(c);
        x += "        Shotcut.ComboBox {\n            id: " + id + "\n            model: [" +
             model + "]\n            onActivated: filter.set(" + name +
             ", currentText)\n        }\n";
        x += "        Shotcut.UndoButton {\n            onClicked: { " + id +
             ".currentIndex = " + number(r.p.initial) + "; filter.set(" + name + ", " + id +
             ".currentText) }\n        }\n        Item { width: 1 }\n";
    } else if (r.p.kind == kParameterKindColour) {
        x += "        Shotcut.ColorPicker {\n            id: " + id +
             "\n            onValueChanged: filter.set(" + name + ", '' + value)\n        }\n";
        x += "        Shotcut.UndoButton {\n            onClicked: " + id +
             ".value = " + quoted(initialColour(r)) + "\n        }\n        Item { width: 1 }\n";
    } else {
        const std::string lo = number(r.p.minimum), hi = r.maximum;
        x += "        Shotcut.SliderSpinner {\n            id: " + id +
             "\n            minimumValue: " + lo + "\n            maximumValue: " + hi +
             "\n            decimals: " + std::to_string(r.decimals) +
             "\n            stepSize: " + (r.decimals ? "0.01" : "1") +
             "\n            Layout.fillWidth: true\n"
             "            onValueChanged: updateFilter(" +
             name + ", (value - " + lo + ") / (" + hi + " - " + lo + "), " + id +
             "Keyframes, getPosition())\n        }\n";
        x += "        Shotcut.UndoButton {\n            onClicked: " + id +
             ".value = " + number(r.p.initial) + "\n        }\n";
        x += "        Shotcut.KeyframesButton {\n            id: " + id +
             "Keyframes\n            onToggled: {\n                enableControls(true)\n"
             "                toggleKeyframes(checked, " +
             name + ", (" + id + ".value - " + lo + ") / (" + hi + " - " + lo +
             "))\n            }\n        }\n";
    }
    return x;
}

std::string progressRow() {
    return "        Label {\n            text: 'Progress'\n"
           "            Layout.alignment: Qt.AlignRight\n        }\n"
           "        Shotcut.SliderSpinner {\n            id: progress\n"
           "            minimumValue: 0\n            maximumValue: 1\n            decimals: 3\n"
           "            stepSize: 0.001\n            Layout.fillWidth: true\n"
           "            onValueChanged: updateFilter('Progress', value, progressKeyframes, "
           "getPosition())\n        }\n"
           "        Shotcut.UndoButton {\n            onClicked: progress.value = 0.5\n        }\n"
           "        Shotcut.KeyframesButton {\n            id: progressKeyframes\n"
           "            onToggled: {\n                enableControls(true)\n"
           "                toggleKeyframes(checked, 'Progress', progress.value)\n"
           "            }\n        }\n";
}

std::string uiQml(const std::vector<Row>& rows) {
    std::string numbers, all, defaults, read, enable, update, rowsQml;
    for (size_t j = 0; j < rows.size(); ++j) {
        const Row& r = rows[j];
        const std::string id = "p" + std::to_string(j), name = quoted(r.p.name);
        all += name + ", ";
        defaults += "            filter.set(" + name + ", " + storedInitial(r) + ")\n";
        if (r.p.kind == kParameterKindChoice) {
            read += "        " + id + ".currentIndex = Math.max(0, " + id + ".find(filter.get(" +
                    name + ")))\n";
        } else if (r.p.kind == kParameterKindColour) {
            read += "        " + id + ".value = filter.get(" + name + ")\n";
        } else {
            const std::string lo = number(r.p.minimum);
            numbers += name + ", ";
            read += "        " + id + ".value = " + lo + " + filter.getDouble(" + name +
                    ", position) * (" + r.maximum + " - " + lo + ")\n";
            enable += id + ".enabled = ";
            update += "        updateFilter(" + name + ", (" + id + ".value - " + lo + ") / (" +
                      r.maximum + " - " + lo + "), " + id + "Keyframes)\n";
            read +=
                "        " + id + "Keyframes.checked = filter.keyframeCount(" + name + ") > 0\n";
        }
        rowsQml += controlRow(r, j);
    }
    numbers += "'Progress'";
    all += "'Progress'";
    return "import QtQuick 2.12\nimport QtQuick.Controls 2.12\nimport QtQuick.Layouts 1.12\n"
           "import Shotcut.Controls 1.0 as Shotcut\n\n"
           "Shotcut.KeyframableFilter {\n"
           "    keyframableParameters: [" +
           numbers +
           "]\n"
           "    width: 350\n    height: 100\n\n"
           "    Component.onCompleted: {\n        if (filter.isNew) {\n" +
           defaults +
           "            // Progress runs over the clip: 0 on its first frame, 1 on its last.\n"
           "            filter.set('Progress', 0, 0)\n"
           "            filter.set('Progress', 1, Math.max(0, filter.duration - 1))\n"
           "            filter.savePreset(preset.parameters)\n        }\n"
           "        setControls()\n    }\n\n"
           "    function setControls() {\n        var position = getPosition()\n"
           "        blockUpdate = true\n" +
           read +
           "        progress.value = filter.getDouble('Progress', position)\n"
           "        progressKeyframes.checked = filter.keyframeCount('Progress') > 0\n"
           "        blockUpdate = false\n        enableControls(isSimpleKeyframesActive())\n    "
           "}\n\n"
           "    function enableControls(enabled) {\n        " +
           enable +
           "progress.enabled = enabled\n    }\n\n"
           "    function updateSimpleKeyframes() {\n" +
           update +
           "        updateFilter('Progress', progress.value, progressKeyframes)\n    }\n\n"
           "    GridLayout {\n        anchors.fill: parent\n        anchors.margins: 8\n"
           "        columns: 4\n\n"
           "        Label {\n            text: qsTr('Preset')\n"
           "            Layout.alignment: Qt.AlignRight\n        }\n"
           "        Shotcut.Preset {\n            id: preset\n            parameters: [" +
           all +
           "]\n            Layout.columnSpan: 3\n"
           "            onBeforePresetLoaded: resetSimpleKeyframes()\n"
           "            onPresetSelected: {\n                setControls()\n"
           "                initializeSimpleKeyframes()\n            }\n        }\n\n" +
           rowsQml + progressRow() +
           "        Item {\n            Layout.fillHeight: true\n        }\n    }\n\n"
           "    Connections {\n        target: filter\n"
           "        function onInChanged() { updateSimpleKeyframes() }\n"
           "        function onOutChanged() { updateSimpleKeyframes() }\n"
           "        function onAnimateInChanged() { updateSimpleKeyframes() }\n"
           "        function onAnimateOutChanged() { updateSimpleKeyframes() }\n    }\n\n"
           "    Connections {\n        target: producer\n"
           "        function onPositionChanged() { setControls() }\n    }\n}\n";
}

bool write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (out.flush()) return true;
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <module> <output folder>\n", argv[0]);
        return 2;
    }
    try {
        const reelfx::Module module(argv[1]);
        for (const reelfx::EffectInfo& e : module.catalogue()) {
            const auto dir = std::filesystem::path(argv[2]) / ("reelfx_" + slug(e.name));
            std::filesystem::create_directories(dir);
            const std::vector<Row> rows = rowsOf(module, e);
            if (!write(dir / "meta.qml", metaQml(e, rows)) || !write(dir / "ui.qml", uiQml(rows))) {
                return 1;
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "shotcut_filters: %s\n", e.what());
        return 1;
    }
    return 0;
}
