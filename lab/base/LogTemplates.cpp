// SPDX-License-Identifier: Apache-2.0
// The lines that generated log text is made of, all written for this lab.

#include "lab/base/LogTemplates.h"

namespace lab {

const char* const kMainTemplates = R"(
= 111
V WindowLayout pass <g2>: visiting window <A7> of <p>/.<s>, layer <a5>, visible=true, changes=0x<b2>
V WindowLayout pass <g2>: nothing moved in window <A7>

= 7
D WindowLayout placing window <A7> of <p>/.<s>: frame=[0,0][1080,2340] content=[0,84][1080,2208]
  stable=[0,84][1080,2208] insets=[0,84][0,132] rotation=0 density=420 requested=1080x2124 shown=yes
I WindowLayout window <A7> keeps its surface 0x<B8>, frame number <g5>
V WindowLayout order from the top: status-bar, navigation-bar, <p>/.<s>, wallpaper

= 305
I WindowLayout focus goes from <A7> to <B7>, owner <p>/.<s>, display 0
D WindowLayout input focus of display 0 is window <B7>

= 500
I WindowLayout relayout of <A7> took <g2> ms

= 9
I WindowLayout first frame of <p>/.<s> is drawn, <g3> ms after its start
D WindowLayout opening transition of task <a3> starts, 2 windows, 250 ms
D WindowLayout opening transition of task <a3> is over
V WindowLayout letting go of the snapshot of task <a3>

= 10
D WindowLayout rotation requested by <p>: sensor=0 user=unlocked proposed=0 current=0
I WindowLayout rotation of display 0 stays at 0

= 8
W WindowLayout window <A7> of <p> is gone, its call <a2> is ignored

= 375
W WindowLayout no surface for window <A7> yet, layout of <p>/.<s> is put off to the next pass
V WindowLayout pass <g2>: <a1> windows left over

= 6
V WindowLayout insets of window <A7> changed: top=84 bottom=132 left=0 right=0, ime hidden
D WindowLayout telling <p>/.<s> about its new insets, sequence <g4>

= 141
I WindowLayout keyguard is leaving, wallpaper target is <A7>
D WindowLayout unlock animation with <a1> windows starts
D WindowLayout unlock animation is over, <g3> ms

= 3
I WindowLayout state of all windows, asked for by the watch of slow frames: display 0 1080x2340 420 dpi,
  rotation 0, focus <A7>, ime target <A7>, wallpaper target none, keyguard off, transition none;
  #0 status-bar <B7> layer 171000 alpha 1.00 touchable; #1 navigation-bar <C7> layer 161000 alpha
  1.00 touchable; #2 <p>/.<s> <A7> layer <a5> alpha 1.00 touchable focused; #3 <p>/.MainScreen <D7>
  layer <b5> alpha 1.00 stopped; #4 com.example.launcher/.HomeScreen <E7> layer 21000 alpha 0.00
  stopped; #5 wallpaper <F7> layer 11000 alpha 0.00; pending: 0 layouts, 0 transitions, 0 drawn
  callbacks; last pass <g3> us, longest of the last 600: <c4> us, frames late: <d2>;
  input: <a1> channels open, <g2> events under way, none blocked; insets: top 84, bottom 132; animator
  scale 1.0, transition scale 1.0, window scale 1.0; density forced=no size forced=no

= 9
V WindowLayout touch region of <A7> is [0,<a3>][1080,<b4>]

= 12
E WindowLayout window <A7> of <p> did not answer within 5000 ms

= 445
I PowerState wake lock +<A7> "<p>:sync" type=PARTIAL flags=0x<a1> uid=10<b3> pid=<c5> held=<d1>,
  charged to uid 10<b3> of <p>, limit 600000 ms, screen on=true, next check at <e8>
D PowerState level of wakefulness: awake, locks=<d1> user-activity=0x<a1> stay-on=no
I PowerState wake lock -<A7> "<p>:sync" type=PARTIAL flags=0x<a1> uid=10<b3> pid=<c5> after=<g4> ms,
  charged to uid 10<b3> of <p>, limit 600000 ms, screen on=true

= 5
I PowerState wake lock +<A7> "audio:mix" type=PARTIAL flags=0x0 uid=1041 pid=<c5> held=<d1>
I PowerState wake lock -<A7> "audio:mix" type=PARTIAL flags=0x0 uid=1041 pid=<c5> after=<g4> ms

= 4
D PowerState user activity: event=touch flags=0x0 uid=1000 time=<g7>
V PowerState screen stays on until <g7>, dims 7000 ms before

= 182
I PowerState brightness request: policy=bright level=0.<a3> adjust=0.00 auto=true boost=false
  doze=none proximity=false low-power=false animation=<b2> for window <A7>

= 6
D PowerState suspend blocker "main" is held, count <a1>
D PowerState suspend blocker "display" is held, count <b1>

= 4
I PowerState going to sleep, reason timeout, uid 1000, last touch <g6> ms ago
I PowerState display 0 turns off, <a1> wake locks are left
D PowerState suspend blocker "display" is released

= 209
I PowerState waking up by the power key, slept for <g6> ms
I PowerState display 0 turns on, unlocking takes <a3> ms

= 7
W PowerState wake lock <A7> of <p> is held for <g6> ms by now

= 5
D PowerState low power mode: off, battery <a2> %, plugged=<b1>, sticky=no

= 6
D PowerState thermal headroom 0.<a2>, status none, skin <b2>.<g1> C

= 6
I PowerState light doze for <g6> ms, <a2> alarms and <b2> jobs are waiting

= 486
I SurfaceQueue [<p>/.<s>#<a1>] buffer <b2> of 3 queued, frame <g6>, 1080x2340, format 1, usage 0x<A8>
  fence <C4>

= 10
I SurfaceQueue [<p>/.<s>#<a1>] connected, api 1, producer pid <b5>, controlled by app=false
D SurfaceQueue [<p>/.<s>#<a1>] allocates buffer 0x<A8>, 1080x2340, stride 1088, format 1
D SurfaceQueue [<p>/.<s>#<a1>] allocates buffer 0x<B8>, 1080x2340, stride 1088, format 1

= 13
I SurfaceQueue [<p>/.<s>#<a1>] disconnected, <g3> frames shown, <b2> dropped

= 9
D SurfaceQueue layer 0x<A8> (<p>/.<s>) removed, parent 0x<B8>

= 8
D SurfaceQueue composition of display 0: <a1> layers by the device, <b1> by the gpu, <g4> us

= 224
W SurfaceQueue [<p>/.<s>#<a1>] no free buffer for <g2> ms

= 8
V SurfaceQueue refresh rate vote of <p>/.<s>: <a2> Hz

= 135
I SurfaceQueue display 0 switches to <a2> Hz, next vsync in <g4> us

= 445
D SurfaceQueue stretched frame: began <g8> presented <h8> late by <i4> us, layer 0x<A8> (<p>/.<s>), <a1>
  in the queue, fence <b2> signalled, hardware composer waited <c3> us for it

= 32
I ActivityTasks start of <p>/.<s> from uid 10<a3>, task <b3>, flags 0x<A8>, result 0
I ActivityTasks process <p> (pid <c5>) starts for activity <p>/.<s>, uid 10<a3>, abi arm64
I ActivityTasks <p>/.<s> is displayed, <g3> ms after its start, cold

= 7
I ActivityTasks <p>/.<s> pauses, task <b3>, reason: another one comes to the front
D ActivityTasks <p>/.<s> is stopped, saved state <g4> bytes

= 8
D ActivityTasks record <A7> u0 <p>/.<s> t<b3>: RESUMED -> PAUSING

= 497
D ActivityTasks priority of <p> (pid <a5>): top -> cached, score <b3>, group background

= 106
V ActivityTasks oom pass <g4>: <a2> processes, <b1> changed, <c4> us, caused by a start of <p>/.<s>
  with 2 bound services, 1 provider and 0 receivers in line before it

= 500
I ActivityTasks process <p> (pid <a5>) ends: cached for <g6> ms, <b5> KB are free again

= 8
W ActivityTasks service <p>/.SyncService has been running for <g5> ms in the background, it is stopped

= 9
I ActivityTasks broadcast com.example.action.CLOCK_TICK to <a2> receivers, <g2> ms in the queue
V ActivityTasks broadcast <A7>: delivered to <p>, pid <b5>, <g1> ms

= 6
D ActivityTasks content provider com.example.provider.contacts published by <p>, pid <a5>
D ActivityTasks content provider com.example.provider.contacts: <b1> clients were waiting

= 15
I ActivityTasks user 0: task <a3> comes to the front, top <p>/.<s>, home was <b2> ms behind

= 8
I ActivityTasks binding <p>/.PushService to client pid <a5>, connection <A7>, flags 0x<b2>
V ActivityTasks service <p>/.PushService is bound, <g2> ms

= 5
E ActivityTasks <p> (pid <a5>) does not answer: waited <g4> ms for input in <p>/.<s>
I ActivityTasks writing the stacks of pid <a5> for the report on <p>

= 5
I ActivityTasks usage in the last 300 s, by process and in ms of processor time: system <a5>,
  com.example.systemui <b5>, com.example.launcher <c4>, surface <d5>, audio <e4>, radio <f3>, <p> <g4>,
  com.example.mail <h3>, com.example.chat <i3>, com.example.clock 27, com.example.weather 19,
  com.example.music 14, com.example.calendar 12, com.example.photos 9, com.example.notes 4, kernel
  <g5>, interrupts <h4>, idle <i6>; memory in KB: total 5832704, free <b6>, cached <c7>, swapped
  <d6>, pressure some 0.<a2> full 0.0<e1>; major faults <f4>, minor faults <g6>, threads <c4>; reads
  <d5> KB, writes <e5> KB, waits for the disk <i4> ms

= 5
I StatusPanel icon "wifi" of slot <a2>: level <b1>, visible, description "<g2> percent"
D StatusPanel icons laid out: <a2> visible, <c1> in the overflow, <g3> us

= 11
I StatusPanel clock shows another minute, next in <g5> ms

= 163
D StatusPanel panel expansion 0.<g3>, tracking=true, height <a4>
V StatusPanel blur radius <g2>, scrim 0.<a2>

= 5
D StatusPanel notification row 0|<p>|<a4>|null|10<b3> is inflated, <g2> ms, rank <c1>
I StatusPanel notification 0|<p>|<a4>|null|10<b3> is shown, importance 3, group none

= 461
I StatusPanel state of the keyguard: showing=false occluded=false trusted=true, strong
  authentication not needed, face off, fingerprint idle, user 0, bouncer hidden, dozing=false

= 6
W StatusPanel doing <g2> frames of work at once, the main thread was busy for <h3> ms

= 4
D StatusPanel tile "torch" is refreshed: state=1 label="Torch" listening=false
D StatusPanel tile "network" is refreshed: state=2 label="Example Mobile" listening=false

= 5
V StatusPanel navigation hints changed: 0x<a1> -> 0x<b1>, gesture mode, window <A7>

= 5
I AudioRoute stream 3 of <p> (session <a5>) goes to the speaker, volume index <b2> of 15, device 0x2
D AudioRoute output 13: track <a5> active, latency <c2> ms, 48000 Hz, 2 channels

= 100
D AudioRoute output 13 goes to standby after <g4> ms of silence
V AudioRoute mixer thread 0x<A8> sleeps

= 7
I AudioRoute focus: <p> gains it for a short while, client <A7>, loser ducks
I AudioRoute focus: <p> gives it back, client <A7>

= 6
W AudioRoute underrun of track <a5>, <g4> frames missing, session of <p>
V AudioRoute track <a5> gets <g4> frames at last

= 4
E AudioRoute write of <g4> frames to output 13 failed: device is gone

= 6
D AudioRoute parameters for effect <a2> of session <b5>: enabled=1 strength=<c3> preset=music

= 3
I WifiLink rssi -<a2> dBm, link <b3> Mbps, 5 GHz, tx good <g4> retried <h2> lost <c1>, rx <i4>, score 60

= 2
I WifiLink scan <a4> by <p> begins, 32 channels, low latency=false
I WifiLink scan <a4> is over: <b2> access points in <g4> ms
D WifiLink candidate 02:00:5e:<A2>:<B2>:<C2> "example-net" at 5<d3> MHz, -<e2> dBm, score <f3>, is the one in use

= 233
D WifiLink power save on, beacon interval 100, dtim <a1>
V WifiLink driver took <g3> us

= 2
I WifiLink address 192.0.2.<a2> renewed, lease 86400 s, server 192.0.2.1
D WifiLink neighbour 192.0.2.1 is reachable again

= 3
W WifiLink no reply from 192.0.2.1 to probe <g1> within 500 ms

= 3
D WifiLink counters: beacons <g6> missed <a2>, roams <b1>, on for <h6> ms, scanning <c5> ms, tx <i6> ms,
  rx <d6> ms, idle <e7> ms, energy <f3> mAs, temperature of the chip <b2> C

= 3
I RadioLine signal: lte rsrp -<a3> rsrq -1<b1> snr <c2> level <d1>, operator 00101, cell <A7>

= 197
D RadioLine request <a4> DATA_CALLS
D RadioLine reply <a4> DATA_CALLS: 1 call, id 1 active=2 type=IPV4V6 interface=rmnet<b1> mtu=1430

= 2
I RadioLine registration: home, roaming=false, data=lte, area <a5>, cell <A7>, bandwidth 20000 kHz
V RadioLine phone 0 tells <b2> listeners

= 3
W RadioLine request <a4> takes longer than <g4> ms
D RadioLine request <a4> is sent again

= 3
D RadioLine slot 0: card ready, apps=<a1>, pin not needed, imsi 00101*********, level <b1>

= 5
D SensorHub accelerometer: handle <a1> enabled by <p>, period <b5> us, batch 0 us, <c1> clients
D SensorHub accelerometer: handle <a1> disabled by <p>, <g5> events sent

= 8
V SensorHub light <g3> lux, near=false, gain <a1>, integration <b2> ms

= 17
V SensorHub proximity far, raw <g4>, threshold <a4>

= 8
W SensorHub queue of <p> is full, <g3> events dropped from channel <A7>

= 159
I SensorHub hub status: accelerometer <a2> Hz by <b1> clients, gyroscope off, magnetometer off,
  barometer off, light 5 Hz by 1 client, proximity on change by 2 clients, steps <c5>, tilt armed,
  pickup armed, significant motion armed by <p>; fifo <g4> of 10000 used, wake fifo <h2> of 600 used,
  <i5> interrupts, last flush <g6> us ago, hub firmware 4.<e2>, uptime <f6> s, restarts 0, drift <d2> ppm,
  temperature <b2> C, self tests passed 6 of 6, calibration: accelerometer [0.0<a2> -0.0<b2> 0.0<c2>]
  accuracy 3, gyroscope [0.0<d2> 0.0<e2> -0.0<f2>] accuracy 3

= 28
I PackageIndex permission com.example.permission.CAMERA of <p>: granted, flags 0x<a2>, user 0

= 26
I PackageIndex <p> is installed, version <a4>, <g5> KB, by uid 10<b3>
I PackageIndex code of <p> is verified, status quicken, <h4> ms
D PackageIndex scan of /data/app/~~<A8><B8>/<p>-<C8>: 1 apk, <c1> splits, signature unchanged
D PackageIndex index written, <d3> packages, <g3> ms

= 10
D PackageIndex query {action=VIEW scheme=https type=none} from uid 10<a3>: <b2> matches, first <p>/.<s>,
  <g3> us

= 10
W PackageIndex <p> asks for the unknown permission com.example.permission.LEGACY_<a3>

= 4
D InputReader device <a1> "touch-panel" event time <g8>: down at <h4>,<i4>, pressure 0.<b2>, size 0.0<c1>
V InputReader gesture goes to window <A7> (<p>/.<s>), latency <g4> us

= 5
D InputReader key 116 (power) down=true repeat=0 policy=0x<a1> device <b1>, screen on
D InputReader key 116 (power) down=false, held for <g3> ms

= 5
W InputReader window <A7> (<p>/.<s>) is slow: <g3> events wait, oldest for <h4> ms

= 14
I BatteryLevel level=<a2> status=2 plugged=1 voltage=4<g3> current=-<h3> temperature=<b3> health=2 counter=<i7>
D BatteryLevel next percent in about <c4> s, <a2> percent now

= 7
D BatteryLevel charger: usb, 5<a3> mV, limit <b4> mA, cable 60 mOhm, input <g4> mW

= 7
V BatteryLevel statistics of <g3> uids brought up to date, <h3> ms, reason: screen

= 4
I JobRunner job <a4> of <p>/.SyncJob starts, uid 10<b3>, constraints 0x<A8> met, waited <g5> ms
I JobRunner job <a4> of <p>/.SyncJob is done, <g4> ms, again=false

= 7
D JobRunner <a2> jobs are ready, <b1> run, limits 16/6/2, memory normal

= 62
D JobRunner controllers: charging=true idle=false network=<a3> storage-low=false battery-low=false, of <b3>
  jobs <c2> wait for the charger, <d2> for the network, <e2> for the clock and <f1> for nothing

= 4
D AlarmQueue batch of <a1> alarms is due, first "<p>.WAKE" type 2 at <g8>, window <b5> ms, woke up=true
V AlarmQueue next wake-up alarm at <h8>, <c2> batches are left

= 6
I AlarmQueue alarm "<p>.REFRESH" set by uid 10<a3>: type 3, in <b6> ms, repeats every <c7> ms

= 10
D LocationFix fix by <p>: network, accuracy <a2> m, age <g4> ms, satellites none

= 9
D LocationFix satellites: <a2> in view, <b1> used, best <c2> dB, first fix after <g4> ms
V LocationFix report to listener <A7> of <p>, every <d4> ms

= 5
I CodecPool instance <A7> of the video decoder for <p>: 1920x1080, <a2> fps, secure=false
D CodecPool instance <A7>: <b2> input and <c2> output buffers, color format 0x<B8>
D CodecPool instance <A7>: first frame after <g2> ms
I CodecPool instance <A7> is released, <g4> frames, <d1> dropped

= 8
W CodecPool instance <A7>: input is late by <g3> ms, queue empty

= 13
I NoticeBoard notice 0|<p>|<a4>|null|10<b3> posted, channel "general", importance 3, sound=none,
  vibrate=none, category=status
V NoticeBoard ranking of <c2> notices, <g3> us

= 6
D NoticeBoard notice 0|<p>|<a4>|null|10<b3> cancelled by its owner, reason 8

= 4
I NetSelect network <a3>: wifi, score 60, validated=true, metered=false, dns 192.0.2.1, 2001:db8::<A3>
V NetSelect request <b3> of <p> stays with network <a3>

= 6
D NetSelect probe of network <a3>: http 204 after <g3> ms, https 204 after <h3> ms

= 6
W NetSelect dns lookup for uid 10<a3> on network <b3> failed: timeout after <g4> ms

= 8
I NetSelect usage of uid 10<a3> (<p>): rx <g6> tx <h5> bytes, foreground

= 4
D MemoryWatch pressure <a2>, free <g6> KB, cached <h7> KB, swap used <i6> KB, kills 0

= 5
I MemoryWatch trimming <p> (pid <a5>) to level 40, resident <g6> KB

= 4
I MemoryWatch garbage of <p> (pid <a5>): <g5> objects and <b1>.<c1> MB collected in <h3> ms, threads
  stopped for <i2> us, <d1>.<e1> MB of 24 MB in use

= 6
D LocationFix provider network is enabled for user 0, <a1> listeners
W LocationFix fix of <g6> ms ago is too old for <p>

= 35
I AlarmQueue clock of the device corrected by <g3> ms, source network
D AlarmQueue <a2> alarms are planned again

= 5
D NoticeBoard light for notice <a4> of <p>: off
W NoticeBoard <p> posts more than <g2> notices a second, the rest is dropped

= 5
I MemoryWatch start of the app cache: <a2> processes frozen, <b1> thawed

= 41
D BatteryLevel saver threshold <a2> %, not reached
W BatteryLevel charger is weak: <g3> mA of <a4> mA

= 6
W JobRunner job <a4> of <p>/.SyncJob is stopped, constraint 0x<A8> is no longer met

= 6
I CodecPool resources: <a1> of 16 decoders and <b1> of 8 encoders in use
D CodecPool <p> closes its audio decoder <A7>, <g4> frames

= 12
W NetSelect network <a3> lost its validation, score 20
I NetSelect default network is now <b3>: mobile, metered=true

= 92
W InputReader device <a1> "side-keys" is gone
I InputReader device <a1> "side-keys" added, sources 0x<b3>, <c1> keys

= 25
D SensorHub step counter: <g5> steps since the boot
V SensorHub flush of handle <a1> complete, <g3> events

= 2
D RadioLine time from the network: zone +<a2>, daylight saving <b1>
I RadioLine emergency numbers: <a1> from the card, <b1> from the network

= 89
D AudioRoute headset plug: state=0 microphone=0
I AudioRoute ringer mode stays at normal, volume <a2>

= 4
V MemoryWatch volume private: <g7> of 112640 MB free, threshold 500 MB, cache <a4> MB
)";

const char* const kCrashTemplates = R"(
= 10
E CrashReport uncaught exception in thread main of <p>, pid <a5>
E CrashReport com.example.base.StateError: screen <s> was closed <g3> ms ago
E CrashReport     at <p>.<s>.refresh(<s>.java:<b3>)
E CrashReport     at <p>.<s>.onResume(<s>.java:<c3>)
E CrashReport     at com.example.base.Screen.resume(Screen.java:<d3>)
E CrashReport     at com.example.base.MessageLoop.run(MessageLoop.java:214)
E CrashReport <p> (pid <a5>) is ended, crash <g1> since its installation

= 10
E CrashReport uncaught exception in thread worker-<e1> of <p>, pid <a5>
E CrashReport com.example.base.NoMemoryError: <g7> bytes asked for, <h5> free, limit 268435456
E CrashReport     at <p>.cache.ImageCache.decode(ImageCache.java:<b3>)
E CrashReport     at <p>.cache.ImageCache.load(ImageCache.java:<c3>)
E CrashReport     at com.example.base.WorkerPool.run(WorkerPool.java:<d3>)
E CrashReport <p> (pid <a5>) is ended, crash <g1> since its installation

= 10
F CrashReport signal 11 (SIGSEGV), code 1, fault address 0x<A8>, thread <a5> of <p>
F CrashReport build example/vela/17/<f7>, revision 2, arm64, process up for <g5> s
F CrashReport     x0 00000000<A8>  x1 00000000<B8>  x2 00000000<C8>  x3 00000000<D8>
F CrashReport     x4 00000000<E8>  x5 00000000<F8>  x6 0000000000000000  x7 00000000<A4>
F CrashReport     lr 0000007a<B8>  sp 0000007f<C8>  pc 0000007a<D8>  pstate 60001000
F CrashReport   #00 pc 0000<A4> /system/lib64/librender.so (drawLayer+<b3>)
F CrashReport   #01 pc 0000<B4> /system/lib64/librender.so (drawFrame+<c3>)
F CrashReport   #02 pc 0000<C4> /system/lib64/libloop.so (runOnce+<d3>)
F CrashReport   #03 pc 0000<D4> /system/lib64/libloop.so (runThread+<e2>)

= 10
F CrashReport signal 6 (SIGABRT), thread <a5> of the audio service
F CrashReport abort message: "buffer <b3> of stream <c2> was returned twice"
F CrashReport   #00 pc 0000<A5> /system/lib64/libbase.so (stop+<d2>)
F CrashReport   #01 pc 0000<B5> /system/lib64/libaudio.so (giveBack+<e3>)
)";

const char* const kKernelTemplates = R"(
= 10
init: example-<a2> (process <b4>) is done, status 0, ran for <g3> ms
init: example-<a2> comes next

= 10
cpus: core <a1> goes offline, load <b2> %
cpus: core <a1> is online again, entry 0x<B8>

= 10
ipc: call from <a4> to <b4> is refused, <c3> bytes, code <d1>

= 10
charger: state=fast vbat=4<g3> mV ibat=<h4> mA vbus=<i4> mV temp=<a2>

= 10
thermal: zone <a1> (cpu-cluster) at <b2>.<g1> C, cooling level <c1>
thermal: zone <d1> (battery) at <e2>.<h1> C, no trip

= 10
mmc0: request of <g3> blocks at <h8> took <i3> ms, tag <a2>

= 10
wlan: event 0x<A3> from the firmware, length <g3>
wlan: beacon lost for <a1> intervals, rssi -<b2>

= 10
sleep: asked for by the power service, <a1> sources of wake-ups armed
sleep: file systems are clean after 0.<g3> s
sleep: <g3> tasks stand still, now the <h3> devices
sleep: ends by interrupt <a3> (real-time clock) after <g3>.<h3> s
sleep: everything runs again

= 10
policy: process <a4> (example) may not read inode <c5> of dm-<b1>

= 10
usb: cable state 1, online 1, type 0
usb: gadget example is connected, high speed
usb: configuration <a1> is set

= 10
touch: irq <a3> enabled, firmware 0x<B4>, <g4> reports since the start

= 10
display: panel on, power mode 2, <g2> ms
display: brightness <g3>

= 10
fs: sda<a2> is mounted, <b5> files, nothing to repair
verity: sda<a2>: <g5> blocks hashed, all good

= 10
memory: process <a5> ends to free <g5> kB, <h6> kB free and <i6> kB of cache before

= 10
memory: <a3> pages at 0x<B8> are in use, trying the next range

= 10
remoteproc: modem is up, image version <a3>.<b2>
remoteproc: adsp sends heartbeat <g5>

= 10
clk: <a3> MHz asked for cluster <b1>, latency <g3> us
)";

}  // namespace lab
