#include "describe.h"

#include <cstring>
#include <linux/videodev2.h>

namespace virtual_device {
namespace {

void addText(Record& record, const char* key, const unsigned char* text, std::size_t room) {
    char copy[64] = "";
    memcpy(copy, text, room < sizeof(copy) ? room : sizeof(copy) - 1);
    record.add(key, copy);
}

void describeCapability(Record& record, const v4l2_capability& caps) {
    addText(record, "driver", caps.driver, sizeof(caps.driver));
    addText(record, "card", caps.card, sizeof(caps.card));
    addText(record, "bus_info", caps.bus_info, sizeof(caps.bus_info));
    record.add("version", caps.version);
    record.add("capabilities", caps.capabilities);
    record.add("device_caps", caps.device_caps);
}

void describeFormat(Record& record, const v4l2_format& format) {
    const v4l2_pix_format& pix = format.fmt.pix;
    record.add("type", format.type);
    record.add("width", pix.width);
    record.add("height", pix.height);
    record.add("pixelformat", pix.pixelformat);
    record.add("field", pix.field);
    record.add("bytesperline", pix.bytesperline);
    record.add("sizeimage", pix.sizeimage);
    record.add("colorspace", pix.colorspace);
}

void describeRequest(Record& record, const v4l2_requestbuffers& request, bool filled) {
    record.add("count", request.count);
    record.add("type", request.type);
    record.add("memory", request.memory);
    if (filled) {
        record.add("capabilities", request.capabilities);
    } else {
        record.add("reserved", request.reserved[0]);
    }
}

void describeBuffer(Record& record, const v4l2_buffer& buffer, bool filled) {
    record.add("index", buffer.index);
    record.add("type", buffer.type);
    record.add("bytesused", buffer.bytesused);
    record.add("flags", buffer.flags);
    record.add("field", buffer.field);
    record.add("memory", buffer.memory);
    if (filled) {
        record.add("sequence", buffer.sequence);
        record.add("offset", buffer.m.offset);
        record.add("length", buffer.length);
    }
}

} // namespace

Op opOf(std::uint32_t request) {
    switch (request) {
    case VIDIOC_QUERYCAP:
        return Op::QUERY_CAP;
    case VIDIOC_G_FMT:
        return Op::GET_FMT;
    case VIDIOC_S_FMT:
        return Op::SET_FMT;
    case VIDIOC_REQBUFS:
        return Op::REQ_BUFS;
    case VIDIOC_QUERYBUF:
        return Op::QUERY_BUF;
    case VIDIOC_QBUF:
        return Op::QBUF;
    case VIDIOC_DQBUF:
        return Op::DQBUF;
    case VIDIOC_STREAMON:
        return Op::STREAM_ON;
    case VIDIOC_STREAMOFF:
        return Op::STREAM_OFF;
    default:
        return Op::COUNT;
    }
}

void describe(Record& record, const char* key, std::uint32_t request, const void* argument,
              bool filled) {
    if (argument == nullptr) {
        return;
    }
    record.beginObject(key);
    switch (request) {
    case VIDIOC_QUERYCAP:
        if (filled) {
            describeCapability(record, *static_cast<const v4l2_capability*>(argument));
        }
        break;
    case VIDIOC_G_FMT:
        if (filled) {
            describeFormat(record, *static_cast<const v4l2_format*>(argument));
        } else {
            record.add("type", static_cast<const v4l2_format*>(argument)->type);
        }
        break;
    case VIDIOC_S_FMT:
        describeFormat(record, *static_cast<const v4l2_format*>(argument));
        break;
    case VIDIOC_REQBUFS:
        describeRequest(record, *static_cast<const v4l2_requestbuffers*>(argument), filled);
        break;
    case VIDIOC_QUERYBUF:
    case VIDIOC_QBUF:
    case VIDIOC_DQBUF:
        describeBuffer(record, *static_cast<const v4l2_buffer*>(argument), filled);
        break;
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
        record.add("type", *static_cast<const int*>(argument));
        break;
    default:
        break;
    }
    record.endObject();
}

} // namespace virtual_device
