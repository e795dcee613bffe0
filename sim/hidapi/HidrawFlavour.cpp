// What only the hidraw library of hidapi does: the kernel keeps no strings but three.
#include "HidDevice.h"

int hid_get_indexed_string(hid_device* device, int /*index*/, wchar_t* /*string*/, size_t /*maxlen*/) {
    SIM_ENTER(-1)
    return sim::noted(*device, -1, L"hid_get_indexed_string: not supported by hidraw");
}
