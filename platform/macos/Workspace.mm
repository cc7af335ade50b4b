#include <Workspace.h>

#import <AppKit/AppKit.h>

#include <cstring>

void WorkspaceRecyclePath(char const* path, WorkspaceHandler handler, void* context) {
  @autoreleasepool {
    NSString* const text = path == nullptr ? nil : [NSString stringWithUTF8String:path];
    if (text == nil || text.length == 0) return handler(NSFileNoSuchFileError, context);
    // The workspace answers on a queue of its own choice.
    CFRunLoopRef const loop =
        static_cast<CFRunLoopRef>(const_cast<void*>(CFRetain(CFRunLoopGetCurrent())));
    [[NSWorkspace sharedWorkspace]
              recycleURLs:@[ [NSURL fileURLWithPath:text] ]
        completionHandler:^(NSDictionary<NSURL*, NSURL*>*, NSError* error) {
          CFIndex const code = error == nil ? 0 : error.code != 0 ? error.code : -1;
          CFRunLoopPerformBlock(loop, kCFRunLoopDefaultMode, ^{
            handler(code, context);
          });
          CFRunLoopWakeUp(loop);
          CFRelease(loop);
        }];
  }
}

char* WorkspaceCopyApplicationSupportPath() {
  @autoreleasepool {
    NSString* const folder =
        NSSearchPathForDirectoriesInDomains(NSApplicationSupportDirectory, NSUserDomainMask, YES)
            .firstObject;
    return folder == nil ? nullptr : strdup(folder.UTF8String);
  }
}
