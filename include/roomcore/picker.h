// Picker family: what a share picker shows of the windows a user may share.
// The list of top-level windows that can be offered, a still snapshot of one
// (title, process, picture, icon), and live thumbnails composed by the
// Desktop Window Manager.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "dib_image.h"
#include "roomcore_export.h"

// The top-level windows of the calling thread's desktop that a user could
// pick: visible, enabled, titled, unowned, not a child, with a minimise box.
// The list keeps the order of the platform's walk. One object belongs to one
// thread at a time.
class ROOMCORE_API TopWindowEnum {
 public:
  // A new object on each call.
  static TopWindowEnum* Create();
  // Destroys it; null does nothing.
  static void Release(TopWindowEnum* windows);

  // Replaces the list with a fresh walk of the desktop; returns its length.
  virtual int EnumerateWindows() = 0;
  // The handle at `index`, or null when `index` is outside the list. A handle
  // may stop being valid at any time.
  virtual HWND GetWindowAt(int index) = 0;

 protected:
  TopWindowEnum() = default;
  virtual ~TopWindowEnum() = default;
};

// A still view of one window. Title, process id and process name are read
// once, at Create; the icon and the picture are taken afresh on each request.
// A window that has gone gives an empty title and name, process id 0 and null
// images. One object belongs to one thread at a time.
class ROOMCORE_API WindowSnapshot {
 public:
  // A new object on each call.
  static WindowSnapshot* Create(HWND window);
  // Destroys it and the images it returned; null does nothing.
  static void Release(WindowSnapshot* snapshot);

  virtual HWND GetWindow() = 0;
  // The window text when the snapshot was made: read into room for 511
  // characters and the end mark, so at most 510 of them.
  virtual std::wstring GetTitle() = 0;
  // The file name of the process's image, without its folder; empty when the
  // process can't be opened.
  virtual std::wstring GetProcessName() = 0;
  virtual uint32_t GetProcessId() = 0;
  // The window's icon as a top-down picture at the display's depth, or null.
  // The image belongs to the snapshot and stays valid until the next GetIcon
  // or Release. Waits at most 3 seconds for each of the two messages it sends.
  virtual DibImage* GetIcon() = 0;
  // The whole window as a top-down 32-bit picture of the size GetWindowRect
  // gives, or null. Belongs to the snapshot until the next GetPicture or
  // Release.
  virtual DibImage* GetPicture() = 0;

 protected:
  WindowSnapshot() = default;
  virtual ~WindowSnapshot() = default;
};

// Implemented by the host.
class ThumbnailRenderEvent {
 public:
  // The source window no longer gives a thumbnail and its thumbnail has been
  // dropped. Called on the manager's worker thread with the manager's lock
  // held: don't call back into the manager from here.
  virtual void OnThumbnailSourceLost(HWND source) = 0;

 protected:
  virtual ~ThumbnailRenderEvent() = default;
};

// Live thumbnails of other windows inside the host's windows. A worker thread
// fits each thumbnail into its rectangle (aspect ratio kept, centred) about
// every 35 ms and drops those whose source has gone.
//
// Order: Create, SetRenderEvent, Start, SetThumbnail / RemoveThumbnail as the
// view changes, Stop, Release. Release hands the object to the worker, which
// destroys it within a pass: don't touch the object after Release, and call
// Stop first, since thumbnails still registered then are not unregistered.
class ROOMCORE_API ThumbnailRenderMgr {
 public:
  // A new object on each call; no thread yet.
  static ThumbnailRenderMgr* Create();
  // Ends the object; null does nothing. It waits only for a pass that is
  // under way: once it returns, OnThumbnailSourceLost isn't called again.
  // Not from inside OnThumbnailSourceLost.
  static void Release(ThumbnailRenderMgr* manager);

  virtual void SetRenderEvent(ThumbnailRenderEvent* event) = 0;
  // Shows `source` in `*rect` (client coordinates of `destination`), or moves
  // its thumbnail there if it has one already; a rectangle of zero width
  // removes that thumbnail. False when the system refuses the thumbnail (for
  // example with composition off) or `rect` is null. The reserved arguments
  // are ignored. The thumbnail appears from the worker's next pass.
  virtual bool SetThumbnail(HWND destination, const RECT* rect, uint32_t reserved1, uint32_t reserved2,
                            uint32_t reserved3, HWND source) = 0;
  // Starts the worker, once in the object's life.
  virtual void Start() = 0;
  // Removes every thumbnail; the worker goes on.
  virtual void Stop() = 0;
  virtual void RemoveThumbnail(HWND source) = 0;
  virtual bool IsCompositionEnabled() = 0;

 protected:
  ThumbnailRenderMgr() = default;
  virtual ~ThumbnailRenderMgr() = default;
};
