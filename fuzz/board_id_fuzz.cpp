// The board file is text from the kernel's board support; the scan must end
// and keep its tokens within their widths on any input.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "hardware/board_id.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(const_cast<uint8_t*>(data), size, "r"),
                                                          std::fclose);
    if (!file)
        return 0;
    const BoardIdentity identity = ScanBoardId(file.get());
    if (identity.family.size() > 64 || identity.soc.size() > 64 || identity.secure_id.size() > 64
        || identity.bootloader_version.size() > 64)
        std::abort();
    return 0;
}
