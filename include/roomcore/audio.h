// Audio family: sample arithmetic on 32-bit float buffers (full scale -1..+1),
// recording of an audio endpoint, and endpoint state notifications. Device
// names and ids are wide text.
#pragma once

#include <cstdint>
#include <string>

#include "roomcore_export.h"

// dst[i] = clip(dst[i] + src[i]) for `count` samples. With downmix, `src` is
// interleaved stereo and each pair is first replaced, in place, by two copies
// of its mean.
ROOMCORE_API void MixAudio(float* dst, float* src, unsigned int count, bool downmix);
// samples[i] *= gain; not clipped.
ROOMCORE_API void MultiplyAudio(float* samples, int count, float gain);

// What a recording delivers. Implemented by the host; every operation runs on
// the capture's own thread. A handler may stop, restart or release the
// capture that calls it: those calls then return at once, and the thread
// ends (and, after a release, destroys the capture) when the handler returns.
class AudioCaptureEvent {
 public:
  // Never called by the library.
  virtual void OnNotify(int /*value*/) {}
  // One packet of the audio system, converted to the output format: packed
  // PCM (16-bit signed or 32-bit float), channels interleaved, valid during
  // the call only. `size` is the samples of one channel times
  // bits_per_sample / 8: the block holds `size * channels` bytes. `timestamp` is the time of the block's first sample, in
  // microseconds of TimeMicroseconds().
  virtual void OnAudioData(void* /*user_data*/, const void* /*data*/, int /*size*/, int /*bits_per_sample*/,
                           int /*sample_rate*/, int /*channels*/, int64_t /*timestamp*/) {}
  // A stream that had opened has ended: stopped, or its device was lost.
  virtual void OnCaptureStopped() {}
  virtual ~AudioCaptureEvent() {}
};

// Records one endpoint on a thread of its own: a capture endpoint such as a
// microphone (`is_input` true), or what a render endpoint plays (loopback).
// A lost device doesn't end the recording: every 3 seconds the capture
// tries the same device again until Stop.
class ROOMCORE_API AudioCapture {
 public:
  static AudioCapture* Create();
  // Null does nothing; otherwise stops and destroys.
  static void Release(AudioCapture* capture);

  // Before a start; `event` is not owned, `user_data` is handed back as is.
  virtual void SetCaptureEvent(AudioCaptureEvent* event, void* user_data) = 0;
  // Used by the next open. Default: 44100 Hz, 1 channel, 16 bits (16 or 32).
  virtual void SetOutputFormat(int sample_rate, int channels, int bits_per_sample) = 0;
  // Stored only: packets are delivered whole, at the size they arrive.
  virtual void SetBlockDuration(int milliseconds) = 0;
  // An empty id records the default endpoint (and stays on it once found).
  // True even when the device can't be opened: the capture keeps trying.
  virtual bool StartDevice(bool is_input, const std::wstring& device_id) = 0;
  // By friendly name, falling back to the default endpoint. False: no device
  // could be named, and nothing changed.
  virtual bool StartDeviceByName(bool is_input, const std::wstring& device_name) = 0;
  // Ends the recording and waits for the capture thread. Always true.
  virtual bool Stop() = 0;
  // A stream is open and running.
  virtual bool IsActive() = 0;
  // A capture thread runs (streaming, opening, or waiting to retry).
  virtual bool IsRunning() = 0;
  virtual ~AudioCapture() {}

 protected:
  AudioCapture() {}
};

// Implemented by the host. Runs on the audio system's notification thread.
class AudioDeviceListenerEvent {
 public:
  // The endpoint with this id changed its state (plugged, unplugged,
  // enabled, disabled).
  virtual void OnDeviceStateChanged(const wchar_t* device_id) = 0;
  virtual ~AudioDeviceListenerEvent() {}
};

// Subscribes to the system's endpoint notifications while it exists.
class ROOMCORE_API IAudioDeviceListener {
 public:
  static IAudioDeviceListener* Create();
  // Null does nothing; otherwise unsubscribes and destroys.
  static void Release(IAudioDeviceListener* listener);

  // Set before notifications can matter; `event` is not owned and must
  // outlive the listener.
  virtual void SetListenerEvent(AudioDeviceListenerEvent* event) = 0;
  virtual ~IAudioDeviceListener() {}

 protected:
  IAudioDeviceListener() {}
};
