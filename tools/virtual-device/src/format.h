/// \file
/// Which formats the device can take.
#pragma once

#include <linux/videodev2.h>

namespace virtual_device {

/// The format that the device has after it is opened for the first time.
v4l2_pix_format initialFormat();

/// Makes of a wish what the device can do, as VIDIOC_S_FMT reports it.
void adjustFormat(v4l2_pix_format& format);

} // namespace virtual_device
