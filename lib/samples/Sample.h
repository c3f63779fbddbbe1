// Raw samples and every input that reads them: the one header for code
// that uses samples from any source.
#ifndef HERON_SAMPLE_H
#define HERON_SAMPLE_H

#include "samples/FileInputs.h"
#include "samples/RawDataInput.h"
#include "samples/RawSample.h"
#include "samples/StreamInputs.h"

#endif
