#include "lib/H264Writer.h"

bool H264Writer::start(std::string path, const VIDEO_FORMAT& /*format*/)
{
    return open_file(path.c_str()) && outputBuffer(header, headerLength, 0);
}

bool H264Writer::writeChunk(void* data, unsigned int length)
{
    return outputBuffer(static_cast<const char*>(data), length, 0);
}
