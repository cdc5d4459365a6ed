//! Prints when somebody speaks on standard input: 16-bit samples of one channel at 16 kHz. Links the static library:
//!
//!     rustc -O -L native=build/release -l static=korvane-streams -l m examples/rust/speech_times.rs
//!     arecord -q -t raw -f S16_LE -r 16000 -c 1 | ./speech_times

use std::ffi::CStr;
use std::io::{self, Read, Write};
use std::os::raw::{c_char, c_void};
use std::process::ExitCode;
use std::ptr;

const RATE: i32 = 16000;
const SPEECH_END: i32 = 2;

/// KorvaneStreamConfig of korvane_stream.h, field by field.
#[repr(C)]
struct Config {
    size: u32,
    sampling_rate: i32,
    channels: i32,
    frame_length: i32,
    decision: i32,
    restore_level: i32,
    enter_score: f32,
    stay_score: f32,
    enter_db: f32,
    stay_db: f32,
    onset_ms: i32,
    hangover_ms: i32,
    min_gap_ms: i32,
    min_speech_ms: i32,
    max_speech_ms: i32,
    pad_start_ms: i32,
    pad_end_ms: i32,
    user: *mut c_void,
    on_result: Option<extern "C" fn(*mut c_void, *const c_void)>,
    on_event: Option<extern "C" fn(*mut c_void, *const Event)>,
}

#[repr(C)]
struct Event {
    kind: i32,
    open: i32,
    position: i64,
    start: i64,
}

/// Only the library knows what is in it.
#[repr(C)]
struct RawStream {
    _private: [u8; 0],
}

extern "C" {
    fn korvane_stream_defaults(config: *mut Config, rate: i32, channels: i32) -> i32;
    fn korvane_stream_create(config: *const Config, error: *mut i32) -> *mut RawStream;
    fn korvane_stream_destroy(stream: *mut RawStream);
    fn korvane_stream_process(stream: *mut RawStream, samples: *const i16, cleaned: *mut i16, n: i32) -> i32;
    fn korvane_stream_end(stream: *mut RawStream, cleaned: *mut i16) -> i32;
    fn korvane_stream_error_text(error: i32) -> *const c_char;
}

/// A stream and what hears of its segments. The box keeps the listener where the library was told it is.
struct Stream {
    raw: *mut RawStream,
    _listener: Box<Box<dyn FnMut(f64, f64)>>,
}

extern "C" fn on_event(user: *mut c_void, event: *const Event) {
    // SAFETY: the library hands back what `Stream::new` gave it, and an event that is valid during the call.
    let (listener, event) = unsafe { (&mut *user.cast::<Box<dyn FnMut(f64, f64)>>(), &*event) };
    if event.kind == SPEECH_END {
        listener(event.start as f64 / f64::from(RATE), event.position as f64 / f64::from(RATE));
    }
}

impl Stream {
    fn new(listener: impl FnMut(f64, f64) + 'static) -> Result<Self, String> {
        let mut listener: Box<Box<dyn FnMut(f64, f64)>> = Box::new(Box::new(listener));
        // SAFETY: the library fills the record, whose fields are all valid as zeros, before it is used.
        unsafe {
            let mut config: Config = std::mem::zeroed();
            let mut error = korvane_stream_defaults(&mut config, RATE, 1);
            config.user = ptr::addr_of_mut!(*listener).cast();
            config.on_event = Some(on_event);
            config.min_gap_ms = 300; // shorter pauses are within an utterance
            let raw = if error == 0 { korvane_stream_create(&config, &mut error) } else { ptr::null_mut() };
            if raw.is_null() {
                return Err(CStr::from_ptr(korvane_stream_error_text(error)).to_string_lossy().into_owned());
            }
            Ok(Self { raw, _listener: listener })
        }
    }

    fn process(&mut self, samples: &[i16]) {
        // SAFETY: as many samples as are said; no cleaned ones are wanted.
        unsafe { korvane_stream_process(self.raw, samples.as_ptr(), ptr::null_mut(), samples.len() as i32) };
    }

    fn end(&mut self) {
        // SAFETY: no cleaned samples are wanted.
        unsafe { korvane_stream_end(self.raw, ptr::null_mut()) };
    }
}

impl Drop for Stream {
    fn drop(&mut self) {
        // SAFETY: made by korvane_stream_create, and destroyed once.
        unsafe { korvane_stream_destroy(self.raw) };
    }
}

fn run() -> Result<(), String> {
    let mut stream = Stream::new(|start, end| {
        // No println! here: it panics where nobody reads, and the caller of this is C.
        let mut output = io::stdout();
        let _ = writeln!(output, "{start:.2}..{end:.2} s").and_then(|()| output.flush());
    })?;
    let mut input = io::stdin().lock();
    let mut bytes = [0; 1024];
    let mut filled = 0; // a read may end within a sample
    loop {
        let count = input.read(&mut bytes[filled..]).map_err(|error| error.to_string())?;
        filled += count;
        let samples: Vec<i16> = bytes[..filled].chunks_exact(2).map(|b| i16::from_le_bytes([b[0], b[1]])).collect();
        stream.process(&samples);
        bytes[0] = bytes[filled.saturating_sub(1)];
        filled %= 2;
        if count == 0 {
            stream.end();
            return Ok(());
        }
    }
}

fn main() -> ExitCode {
    run().map_or_else(
        |reason| {
            eprintln!("speech_times: {reason}");
            ExitCode::FAILURE
        },
        |()| ExitCode::SUCCESS,
    )
}
