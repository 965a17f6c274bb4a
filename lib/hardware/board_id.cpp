#include "hardware/board_id.h"

#include <memory>

#include "hardware/numeric_text.h"

namespace {

void Apply(BoardIdentity& board, const std::string& key, const std::string& value)
{
    if (key == "Family:")
        board.family = value;
    else if (key == "ID:")
        board.board_id = ParseUnsigned32(value);
    else if (key == "BOLT-version:" || key == "Bootloader-version:")
        board.bootloader_version = value;
    else if (key == "Secure-keys:")
        board.secure_keys = ParseUnsigned32(value) != 0;
    else if (key == "Secure-boot:")
        board.secure_boot = ParseUnsigned32(value) != 0;
    else if (key == "Secure-ID:")
        board.secure_id = value;
    else if (key == "SoC:")
        board.soc = value;
}

} // namespace

BoardIdentity ScanBoardId(std::FILE* file)
{
    BoardIdentity board;
    // Tokens are cut at their width rather than overflowing; the rest of a
    // long token becomes the next token. Every scan that is not at end of
    // file consumes input, so the loop always ends.
    char key[21];
    char value[65];
    for (;;) {
        const int fields = std::fscanf(file, "%20s %64s\n", key, value);
        if (fields == EOF)
            break;
        if (fields == 2)
            Apply(board, key, value);
    }
    return board;
}

BoardIdentity ReadBoardId(const std::string& path)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file)
        return {};
    return ScanBoardId(file.get());
}
