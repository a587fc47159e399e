// modTypes: the registry read and the launch of the conversion tool, and the
// tool's path and command line.
#include "shell/shell.h"

#include <cstdio>

namespace tarnvale::shell {

namespace {
constexpr uint32_t kAllAccess = 0x3F;
constexpr uint32_t kQueryInformation = 0x400;
constexpr size_t kValueBuffer = 1024;
} // namespace

bool modTypes::RegistryRead(platform::Registry& registry, uint32_t hive, const std::string& keyPath,
                            const std::string& valueName, std::string& output) {
    platform::RegValue value;
    if (!registry.openKey(hive, keyPath, kAllAccess) ||
        !registry.queryValue(hive, keyPath, valueName, value) || value.data.size() > kValueBuffer) {
        output.clear();
        return false;
    }
    std::vector<uint8_t> bytes = value.data;
    if (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
    if (value.type == platform::kRegString) {
        output.assign(bytes.begin(), bytes.end());
    } else if (value.type == platform::kRegDword) {
        // Each byte in hex without zero fill, last byte first: how the value reads.
        output = "&h";
        char hex[4];
        for (size_t i = bytes.size(); i-- > 0;) {
            std::snprintf(hex, sizeof hex, "%X", bytes[i]);
            output += hex;
        }
    }
    return true;
}

double modTypes::LaunchAndWait(platform::Processes& processes, std::string& commandLine, bool,
                               int32_t windowStyle) {
    intptr_t handle = 0;
    try {
        int64_t pid = processes.start(commandLine, windowStyle);
        handle = processes.open(pid, kQueryInformation);
        uint32_t code = 0;
        do {
            processes.sleep(50);
            code = 0;
            if (!processes.exitCode(handle, code)) code = 0;
        } while (code == platform::kStillActive);
        processes.close(handle);
        return static_cast<double>(pid);
    } catch (...) {
        // A tool that cannot be started is not reported: the export ends as usual.
        if (handle) processes.close(handle);
        return 0;
    }
}

std::string toolPath(platform::Registry& registry, const std::string& pluginFolder,
                     const std::string& application) {
    std::string root;
    modTypes::RegistryRead(registry, platform::kHkeyLocalMachine, kSdkKey, "SdkRootDir", root);
    if (!root.empty()) return root + "Environment Kit\\Modeling SDK\\3DSM7\\Plugins\\" + application;
    return pluginFolder + "\\" + application;
}

std::string toolCommandLine(const std::string& toolPath, bool hasAnimation, const std::string& modelDefFile,
                            const std::string& exportFileName) {
    std::string line = toolPath;
    if (hasAnimation) line += " /xanim";
    line += " /dict:\"";
    line += modelDefFile;
    line += "\" \"";
    line += exportFileName;
    line += '"';
    return line;
}

std::string modelDefinitionLocation(platform::Registry& registry, const std::string& pluginFolder) {
    XmlDocument attach;
    attach.load(pluginFolder + "\\..\\plugins\\fs10attach.xml");
    std::string location = pluginFolder + "\\modeldef.xml";
    std::vector<XmlElement> parts = attach.select("fs10attach/parts");
    if (parts.empty()) return location;
    std::optional<std::string> key = parts[0].attribute("key"), subkey = parts[0].attribute("subkey");
    if (!key || !subkey) return location;
    std::string value;
    if (modTypes::RegistryRead(registry, platform::kHkeyLocalMachine, *key, *subkey, value))
        location = value + parts[0].attribute("suffix").value_or("");
    return location;
}

} // namespace tarnvale::shell
