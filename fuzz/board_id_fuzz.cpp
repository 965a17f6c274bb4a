// The board file is text from the kernel's board support; the scan must end
// and keep its tokens within their widths on any input.

#include "fuzz_target.h"
#include "hardware/board_id.h"

void FuzzOne(std::string_view input)
{
    if (const auto file = fuzz::OpenText(input)) {
        const BoardIdentity id = ScanBoardId(file.get());
        fuzz::Require(id.family.size() <= 64 && id.soc.size() <= 64 && id.secure_id.size() <= 64
                      && id.bootloader_version.size() <= 64);
    }
}
