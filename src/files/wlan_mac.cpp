// The file from which the Wi-Fi driver takes interface 0's MAC address.
#include <stdio.h>

#include <vxutil/files.h>

#include "common/unique_file.hpp"
#include "files/wlan_mac_line.hpp"

namespace {

constexpr const char kWlanMacPath[] = "/lib/firmware/wlan/qca_cld/wlan_mac.bin";

}  // namespace

extern "C" {

VXU_API int vexmar_wlan_mac_bin_write(const uint8_t *mac)
{
    if (!mac)
        return -1;
    // The driver's directory is never created here.
    vxu::unique_file f(fopen(kWlanMacPath, "w+"));
    if (!f)
        return -1;
    // As with the value files, only the open is checked.
    (void)fprintf(f.get(), vxu::files::kWlanMacLineFormat, mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    (void)fputs("END\n", f.get());
    return 0;
}

VXU_API int vexmar_wlan_mac_bin_read(uint8_t *mac)
{
    if (!mac)
        return -1;
    vxu::unique_file f(fopen(kWlanMacPath, "r"));
    if (!f)
        return -1;
    // Only the first line matters; the end marker is not checked.
    char line[64];
    const bool got_line = fgets(line, sizeof line, f.get()) != nullptr;
    f.reset();
    if (!got_line || !vxu::files::parse_wlan_mac_line(line, mac))
        return -1;
    return 0;
}

}  // extern "C"
