// GNUstep's NSKeyedArchiver/NSKeyedUnarchiver as a peer: an independent reader of our keyed
// archives, and a speed comparison on the same entry lists.
//   gnustep-peer dump FILE   print the decoded archive in a canonical text form
//   gnustep-peer bench N     time encoding and decoding an entry list of N entries

#import <Foundation/Foundation.h>
#include <stdio.h>
#include <time.h>

static void dump(id obj, NSMutableString *out)
{
    if ([obj isKindOfClass:[NSString class]]) {
        NSData *d = [obj dataUsingEncoding:NSUTF8StringEncoding];
        const unsigned char *b = [d bytes];
        [out appendString:@"s"];
        for (NSUInteger i = 0; i < [d length]; i++)
            [out appendFormat:@"%02x", b[i]];
    } else if ([obj isKindOfClass:[NSNumber class]]) {
        const char *t = [obj objCType];
        if (t[0] == 'd' || t[0] == 'f')
            [out appendFormat:@"r%.17g", [obj doubleValue]];
        else if ([obj class] == [[NSNumber numberWithBool:YES] class]
                 && ([obj isEqual:[NSNumber numberWithBool:YES]] || [obj isEqual:[NSNumber numberWithBool:NO]])
                 && (obj == [NSNumber numberWithBool:YES] || obj == [NSNumber numberWithBool:NO]))
            [out appendFormat:@"b%d", [obj boolValue] ? 1 : 0];
        else
            [out appendFormat:@"i%lld", [obj longLongValue]];
    } else if ([obj isKindOfClass:[NSArray class]]) {
        [out appendString:@"["];
        for (id e in obj) {
            dump(e, out);
            [out appendString:@","];
        }
        [out appendString:@"]"];
    } else if ([obj isKindOfClass:[NSDictionary class]]) {
        [out appendString:@"{"];
        for (id k in [[obj allKeys] sortedArrayUsingSelector:@selector(compare:)]) {
            dump(k, out);
            [out appendString:@":"];
            dump([obj objectForKey:k], out);
            [out appendString:@","];
        }
        [out appendString:@"}"];
    } else {
        [out appendFormat:@"?%@", NSStringFromClass([obj class])];
    }
}

static NSMutableArray *sampleEntries(int n)
{
    NSMutableArray *list = [NSMutableArray arrayWithCapacity:n];
    for (int i = 0; i < n; i++) {
        NSMutableDictionary *e = [NSMutableDictionary dictionary];
        [e setObject:[NSString stringWithFormat:@"Site %05d", i] forKey:@"Path"];
        [e setObject:@"" forKey:@"Button"];
        [e setObject:[NSString stringWithFormat:@"https://www.example%d.com/login", i] forKey:@"websiteURL"];
        [e setObject:[NSString stringWithFormat:@"user%d@example.com", i] forKey:@"websiteUserID"];
        [e setObject:[NSString stringWithFormat:@"p4ss-%d-W\u00f6rd!", i * 7919] forKey:@"websitePassword"];
        [e setObject:[NSString stringWithFormat:@"Account number %d\nSecurity question: first pet\nAnswer: Rex", i]
              forKey:@"Notes"];
        [e setObject:[NSNumber numberWithLongLong:i % 4] forKey:@"websiteNewUserIDOptions"];
        [e setObject:[NSNumber numberWithBool:(i % 2) == 0] forKey:@"websiteUserIDTabSwitch"];
        [e setObject:[NSNumber numberWithLongLong:i % 3] forKey:@"websiteUserIDTabCount"];
        [e setObject:[NSNumber numberWithBool:YES] forKey:@"websitePasswordTabSwitch"];
        [e setObject:[NSNumber numberWithLongLong:0] forKey:@"websitePasswordTabCount"];
        [e setObject:[NSNumber numberWithBool:(i % 3) == 0] forKey:@"websitePasswordEnter"];
        [list addObject:e];
    }
    return list;
}

static double now(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

int main(int argc, char **argv)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    if (argc == 3 && strcmp(argv[1], "dump") == 0) {
        NSData *data = [NSData dataWithContentsOfFile:[NSString stringWithUTF8String:argv[2]]];
        id root = nil;
        NS_DURING
            root = [NSKeyedUnarchiver unarchiveObjectWithData:data];
        NS_HANDLER
            fprintf(stderr, "gnustep-peer: %s\n", [[localException reason] UTF8String]);
            return 2;
        NS_ENDHANDLER
        if (!root) {
            fprintf(stderr, "gnustep-peer: nothing decoded\n");
            return 2;
        }
        NSMutableString *out = [NSMutableString string];
        dump(root, out);
        printf("%s\n", [out UTF8String]);
    } else if (argc == 3 && strcmp(argv[1], "bench") == 0) {
        int n = atoi(argv[2]);
        NSMutableArray *list = sampleEntries(n);
        double t0 = now();
        NSData *data = [NSKeyedArchiver archivedDataWithRootObject:list];
        double t1 = now();
        id back = [NSKeyedUnarchiver unarchiveObjectWithData:data];
        double t2 = now();
        printf("gnustep entries=%d encode_ms=%.2f decode_ms=%.2f ok=%d\n", n, (t1 - t0) * 1000, (t2 - t1) * 1000,
               [back count] == (NSUInteger)n);
    } else {
        fprintf(stderr, "usage: gnustep-peer dump FILE | bench N\n");
        return 1;
    }
    [pool drain];
    return 0;
}
