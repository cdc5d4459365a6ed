// Prints when somebody speaks on standard input: 16-bit samples of one channel at 16 kHz. Links the static library:
//
//	CGO_CFLAGS="-I$PWD/include" CGO_LDFLAGS="$PWD/build/release/libkorvane-streams.a -lm" go build examples/go/speech_times.go
//	arecord -q -t raw -f S16_LE -r 16000 -c 1 | ./speech_times
package main

/*
#include <korvane_stream.h>
#include <stdlib.h>

extern void speechTimesEvent(void* user, KorvaneStreamEvent* event);

// Memory of C's holds the handle, since C must not keep Go's.
static KorvaneStream* open_stream(int32_t rate, uintptr_t* listener, int32_t* error) {
    KorvaneStreamConfig config;
    *error = korvane_stream_defaults(&config, rate, 1);
    if (*error != KORVANE_OK) {
        return NULL;
    }
    config.user = listener;
    config.on_event = (void (*)(void*, const KorvaneStreamEvent*))speechTimesEvent;
    config.min_gap_ms = 300; // shorter pauses are within an utterance
    return korvane_stream_create(&config, error);
}
*/
import "C"

import (
	"bufio"
	"encoding/binary"
	"errors"
	"fmt"
	"io"
	"os"
	"runtime/cgo"
	"unsafe"
)

const rate = 16000

// A listener hears of each segment: where it begins and ends, in seconds.
type listener func(start, end float64)

//export speechTimesEvent
func speechTimesEvent(user unsafe.Pointer, event *C.KorvaneStreamEvent) {
	if event.kind == C.KORVANE_SPEECH_END {
		told := cgo.Handle(*(*C.uintptr_t)(user)).Value().(listener)
		told(float64(event.start)/rate, float64(event.position)/rate)
	}
}

// listen hands over all samples of the input, and waits for its end.
func listen(input io.Reader, told listener) error {
	handle := cgo.NewHandle(told)
	defer handle.Delete()
	user := (*C.uintptr_t)(C.malloc(C.sizeof_uintptr_t))
	defer C.free(unsafe.Pointer(user))
	*user = C.uintptr_t(handle)
	var failure C.int32_t
	stream := C.open_stream(rate, user, &failure)
	if stream == nil {
		return errors.New(C.GoString(C.korvane_stream_error_text(failure)))
	}
	defer C.korvane_stream_destroy(stream)
	samples := make([]int16, 160)
	bytes := make([]byte, 2*len(samples))
	for {
		count, err := io.ReadFull(input, bytes)
		for i := range samples[:count/2] {
			samples[i] = int16(binary.LittleEndian.Uint16(bytes[2*i:]))
		}
		C.korvane_stream_process(stream, (*C.int16_t)(&samples[0]), nil, C.int32_t(count/2))
		if err == io.EOF || err == io.ErrUnexpectedEOF {
			C.korvane_stream_end(stream, nil)
			return nil
		}
		if err != nil {
			return err
		}
	}
}

func main() {
	err := listen(bufio.NewReader(os.Stdin), func(start, end float64) {
		fmt.Printf("%.2f..%.2f s\n", start, end)
	})
	if err != nil {
		fmt.Fprintln(os.Stderr, "speech_times:", err)
		os.Exit(1)
	}
}
