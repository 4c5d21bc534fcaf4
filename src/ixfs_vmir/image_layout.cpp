#include "image_layout.h"

LmfString default_narrow(std::string_view text)
{
    return {text.data(), text.size(), StringConverter::getDefaultNarrowCodePage(false), 0};
}

const LmfString VIEW_DIR_NAME = default_narrow("_vmir");
const LmfString backupsPathElement = default_narrow("backups");
const LmfString dotDescFileType = default_narrow(".desc");
const LmfString dotVmdkDotDescFileType = default_narrow(".vmdk.desc");
