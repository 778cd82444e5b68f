//! Encodes a 16-bit WAV file through the function interface and lists the frames: number, bytes, seconds at
//! its end. Usage: encode IN.wav OUT.mp2
//!
//!     rustc --edition 2021 -O -L native=FOLDER_OF_THE_LIBRARY encode.rs

use std::os::raw::{c_char, c_int, c_void};
use std::{env, fs, io::Write, process, ptr};

const PRESET_DVB: i32 = 8;
const FRAME_INFO: u32 = 0x000F_0002;

#[repr(C, packed(4))]
struct Settings {
    audio_mode: i32,
    audio_layer: i32,
    psych_model: i32,
    audio_bitrate: i32,
    header: [i32; 5],
    pts_offset: i64,
    pts_units: i32,
    audio_model: i32,
    reserved: [u8; 4044],
}

#[repr(C)]
struct FrameInfo {
    length: u32,
    unused: u32,
    time_stamp: i64,
}

/// The slots of a bufstream and, behind them, what is ours.
#[repr(C)]
struct Output {
    unused_0: *const c_void,
    request: extern "C" fn(&mut Output, u32) -> *mut u8,
    commit: extern "C" fn(&mut Output, u32) -> u32,
    unused_3: *const c_void,
    chunk_size: extern "C" fn(&mut Output) -> u32,
    auxinfo: extern "C" fn(&mut Output, u32, u32, *const c_void, u32) -> u32,
    unused: [*const c_void; 3],
    block: [u8; 4096],
    file: fs::File,
    frames: u32,
}

extern "C" fn request(output: &mut Output, size: u32) -> *mut u8 {
    if size <= chunk_size(output) { output.block.as_mut_ptr() } else { ptr::null_mut() }
}
extern "C" fn commit(output: &mut Output, size: u32) -> u32 {
    let written = output.file.write_all(&output.block[..size as usize]);
    if written.is_ok() { size } else { 0 }
}
extern "C" fn chunk_size(output: &mut Output) -> u32 {
    output.block.len() as u32
}
extern "C" fn auxinfo(output: &mut Output, _: u32, id: u32, data: *const c_void, _: u32) -> u32 {
    if id == FRAME_INFO {
        let info = unsafe { &*(data as *const FrameInfo) };
        println!("{},{},{:.6}", output.frames, info.length, info.time_stamp as f64 / 27e6);
        output.frames += 1;
    }
    0
}

type Lookup = extern "C" fn(*const c_char) -> *const c_void;

#[link(name = "vela_enc_mp1a")]
extern "C" {
    fn mpegOutAudioDefaults(settings: *mut Settings, preset: i32) -> i32;
    fn mpegOutAudioNew(lookup: Option<Lookup>, settings: *const Settings, reserved: isize,
                       pcm_format: i32, sample_rate: i32) -> *mut c_void;
    fn mpegOutAudioInit(encoder: *mut c_void, output: *mut c_void) -> i32;
    fn mpegOutAudioPutBytes(encoder: *mut c_void, data: *const u8, size: u32) -> i32;
    fn mpegOutAudioDone(encoder: *mut c_void, abort: i32) -> i32;
    fn mpegOutAudioFree(encoder: *mut c_void);
    fn printf(format: *const c_char, ...) -> c_int;
}

/// The library asks for its host's functions by name; for its messages the C library's printf will do.
extern "C" fn lookup(name: *const c_char) -> *const c_void {
    let name = unsafe { std::ffi::CStr::from_ptr(name) };
    if name.to_bytes() == b"err_printf" { printf as *const c_void } else { ptr::null() }
}

/// Channels, rate and samples of a 16-bit PCM WAV file.
fn read_wav(bytes: &[u8]) -> Option<(u16, i32, &[u8])> {
    let (mut at, mut shape) = (12, None);
    while bytes.starts_with(b"RIFF") && at + 8 <= bytes.len() {
        let size = u32::from_le_bytes(bytes[at + 4..at + 8].try_into().ok()?) as usize;
        let chunk = &bytes[at + 8..bytes.len().min(at + 8 + size)];
        match &bytes[at..at + 4] {
            b"fmt " if chunk.len() >= 16 && chunk[0] == 1 && chunk[14] == 16 => {
                shape = Some((chunk[2] as u16, i32::from_le_bytes(chunk[4..8].try_into().ok()?)));
            }
            b"data" => return shape.map(|(channels, rate)| (channels, rate, chunk)),
            _ => {}
        }
        at += 8 + size + size % 2;
    }
    None
}

fn fail(message: &str) -> ! {
    eprintln!("{message}");
    process::exit(1)
}

fn main() {
    let names: Vec<String> = env::args().skip(1).collect();
    if names.len() != 2 {
        fail("usage: encode IN.wav OUT.mp2");
    }
    let bytes = fs::read(&names[0]).unwrap_or_else(|e| fail(&format!("{}: {e}", names[0])));
    let file = fs::File::create(&names[1]).unwrap_or_else(|e| fail(&format!("{}: {e}", names[1])));
    let (channels, rate, pcm) = match read_wav(&bytes) {
        Some(found) if found.0 == 1 || found.0 == 2 => found,
        _ => fail("16-bit PCM with one or two channels is what this example reads"),
    };
    let null = ptr::null();
    let mut output = Output { unused_0: null, request, commit, unused_3: null, chunk_size, auxinfo,
                              unused: [null; 3], block: [0; 4096], file, frames: 0 };
    let result = unsafe {
        let mut settings: Settings = std::mem::zeroed();
        mpegOutAudioDefaults(&mut settings, PRESET_DVB);
        // Layer II: index 8 is 128 kbit/s, 11 is 224.
        (settings.audio_mode, settings.audio_bitrate) = if channels == 1 { (3, 8) } else { (0, 11) };
        let encoder = mpegOutAudioNew(Some(lookup), &settings, 0, 2, rate);
        if encoder.is_null() {
            fail("");
        }
        mpegOutAudioInit(encoder, &mut output as *mut Output as *mut c_void);
        let put = |piece: &[u8]| mpegOutAudioPutBytes(encoder, piece.as_ptr(), piece.len() as u32);
        let result = pcm.chunks(16384).map(put).find(|&result| result != 0).unwrap_or(0);
        mpegOutAudioDone(encoder, result);
        mpegOutAudioFree(encoder);
        result
    };
    if result != 0 {
        fail(&format!("{}: not everything could be written", names[1]));
    }
}
