#include "OstaVell/Support/SymbolGlyphs.h"

#include "OstaVell/Support/Logging.h"

#include <QFontDatabase>

#include <algorithm>
#include <iterator>

namespace vell {

namespace {

// The protocol's symbol names, sorted, each with the Material Icons code point that draws it
// (the icon's own name alongside). It holds every name our views use, those of the bundled
// examples and a few hundred of the commonest; variants that differ only by ".fill", ".circle" or
// ".square" need no entry of their own unless the font has a glyph that tells them apart.
constexpr SymbolGlyph glyphs[] = {
    {u"accessibility", 0xE84E},                              // accessibility
    {u"air.conditioner.horizontal", 0xEB3B},                 // ac_unit
    {u"airplane", 0xE539},                                   // flight
    {u"airplayaudio", 0xE055},                               // airplay
    {u"airplayvideo", 0xE307},                               // cast
    {u"airpods", 0xF003},                                    // earbuds
    {u"alarm", 0xE855},                                      // alarm
    {u"ant", 0xF0FA},                                        // pest_control
    {u"antenna.radiowaves.left.and.right", 0xEBBA},          // cell_tower
    {u"app.connected.to.app.below.fill", 0xE4FD},            // schema
    {u"applelogo", 0xEA80},                                  // apple
    {u"applewatch", 0xE334},                                 // watch
    {u"archivebox", 0xE149},                                 // archive
    {u"archivebox.fill", 0xE149},                            // archive
    {u"arrow.2.circlepath", 0xE627},                         // sync
    {u"arrow.3.trianglepath", 0xE760},                       // recycling
    {u"arrow.backward", 0xE5C4},                             // arrow_back
    {u"arrow.backward.circle", 0xEAA7},                      // arrow_circle_left
    {u"arrow.clockwise", 0xE5D5},                            // refresh
    {u"arrow.counterclockwise", 0xE042},                     // replay
    {u"arrow.down", 0xE5DB},                                 // arrow_downward
    {u"arrow.down.app", 0xE884},                             // get_app
    {u"arrow.down.circle", 0xF181},                          // arrow_circle_down
    {u"arrow.down.doc", 0xE2C4},                             // file_download
    {u"arrow.down.forward.and.arrow.up.backward", 0xF1CF},   // close_fullscreen
    {u"arrow.down.left", 0xF1E5},                            // south_west
    {u"arrow.down.right", 0xF1E4},                           // south_east
    {u"arrow.down.right.and.arrow.up.left", 0xF1CF},         // close_fullscreen
    {u"arrow.down.to.line", 0xF090},                         // download
    {u"arrow.forward", 0xE5C8},                              // arrow_forward
    {u"arrow.forward.circle", 0xEAAA},                       // arrow_circle_right
    {u"arrow.left", 0xE5C4},                                 // arrow_back
    {u"arrow.left.arrow.right", 0xE8D4},                     // swap_horiz
    {u"arrow.left.circle", 0xEAA7},                          // arrow_circle_left
    {u"arrow.right", 0xE5C8},                                // arrow_forward
    {u"arrow.right.arrow.left", 0xE915},                     // compare_arrows
    {u"arrow.right.circle", 0xEAAA},                         // arrow_circle_right
    {u"arrow.triangle.2.circlepath", 0xE627},                // sync
    {u"arrow.triangle.branch", 0xE0B6},                      // call_split
    {u"arrow.triangle.merge", 0xE252},                       // merge_type
    {u"arrow.triangle.swap", 0xE0D7},                        // swap_calls
    {u"arrow.triangle.turn.up.right.diamond", 0xE52E},       // directions
    {u"arrow.turn.up.left", 0xE15E},                         // reply
    {u"arrow.up", 0xE5D8},                                   // arrow_upward
    {u"arrow.up.and.down", 0xEA16},                          // height
    {u"arrow.up.and.down.and.arrow.left.and.right", 0xE89F}, // open_with
    {u"arrow.up.arrow.down", 0xE8D5},                        // swap_vert
    {u"arrow.up.backward.and.arrow.down.forward", 0xF1CE},   // open_in_full
    {u"arrow.up.bin", 0xE169},                               // unarchive
    {u"arrow.up.circle", 0xF182},                            // arrow_circle_up
    {u"arrow.up.doc", 0xE9FC},                               // upload_file
    {u"arrow.up.forward.app", 0xE89E},                       // open_in_new
    {u"arrow.up.left", 0xF1E2},                              // north_west
    {u"arrow.up.left.and.arrow.down.right", 0xF1CE},         // open_in_full
    {u"arrow.up.right", 0xF1E1},                             // north_east
    {u"arrow.up.right.square", 0xE89E},                      // open_in_new
    {u"arrow.up.to.line", 0xF09B},                           // upload
    {u"arrow.uturn.backward", 0xE166},                       // undo
    {u"arrow.uturn.forward", 0xE15A},                        // redo
    {u"arrow.uturn.left", 0xE166},                           // undo
    {u"arrow.uturn.right", 0xE15A},                          // redo
    {u"arrowshape.turn.up.backward", 0xE15E},                // reply
    {u"arrowshape.turn.up.backward.2", 0xE15F},              // reply_all
    {u"arrowshape.turn.up.forward", 0xE154},                 // forward
    {u"arrowshape.turn.up.left", 0xE15E},                    // reply
    {u"arrowshape.turn.up.left.2", 0xE15F},                  // reply_all
    {u"arrowshape.turn.up.right", 0xE154},                   // forward
    {u"arrowtriangle.down", 0xE5C5},                         // arrow_drop_down
    {u"arrowtriangle.left", 0xE5DE},                         // arrow_left
    {u"arrowtriangle.right", 0xE5DF},                        // arrow_right
    {u"arrowtriangle.up", 0xE5C7},                           // arrow_drop_up
    {u"at", 0xE0E6},                                         // alternate_email
    {u"backpack", 0xF19C},                                   // backpack
    {u"backward", 0xE020},                                   // fast_rewind
    {u"backward.end", 0xE045},                               // skip_previous
    {u"backward.end.fill", 0xE045},                          // skip_previous
    {u"backward.fill", 0xE020},                              // fast_rewind
    {u"bag", 0xF1CC},                                        // shopping_bag
    {u"balloon", 0xEA65},                                    // celebration
    {u"bandage", 0xE3F3},                                    // healing
    {u"banknote", 0xEF63},                                   // payments
    {u"barcode.viewfinder", 0xF206},                         // qr_code_scanner
    {u"basketball", 0xEA26},                                 // sports_basketball
    {u"bathtub", 0xEA41},                                    // bathtub
    {u"battery.0", 0xEBDC},                                  // battery_0_bar
    {u"battery.100", 0xE1A4},                                // battery_full
    {u"battery.100.bolt", 0xE1A3},                           // battery_charging_full
    {u"battery.25", 0xEBE0},                                 // battery_2_bar
    {u"battery.50", 0xEBE2},                                 // battery_4_bar
    {u"battery.75", 0xEBD4},                                 // battery_5_bar
    {u"bed.double", 0xEFDF},                                 // bed
    {u"bell", 0xE7F5},                                       // notifications_none
    {u"bell.badge", 0xE7F7},                                 // notifications_active
    {u"bell.fill", 0xE7F4},                                  // notifications
    {u"bell.slash", 0xE7F6},                                 // notifications_off
    {u"bicycle", 0xEB29},                                    // pedal_bike
    {u"birthday.cake", 0xE7E9},                              // cake
    {u"bitcoinsign.circle", 0xEBC5},                         // currency_bitcoin
    {u"blinds.horizontal.open", 0xE286},                     // blinds
    {u"blinds.vertical.closed", 0xEC1F},                     // blinds_closed
    {u"bluetooth", 0xE1A7},                                  // bluetooth
    {u"bold", 0xE238},                                       // format_bold
    {u"bolt", 0xEA0B},                                       // bolt
    {u"bolt.car", 0xEB1C},                                   // electric_car
    {u"bolt.fill", 0xEA0B},                                  // bolt
    {u"bolt.slash", 0xE3E6},                                 // flash_off
    {u"book", 0xE865},                                       // book
    {u"book.closed", 0xE865},                                // book
    {u"book.fill", 0xE865},                                  // book
    {u"bookmark", 0xE867},                                   // bookmark_border
    {u"bookmark.fill", 0xE866},                              // bookmark
    {u"bookmark.slash", 0xE59A},                             // bookmark_remove
    {u"books.vertical", 0xE02F},                             // library_books
    {u"box.truck", 0xE558},                                  // local_shipping
    {u"brain", 0xEA4A},                                      // psychology
    {u"brain.head.profile", 0xEA4A},                         // psychology
    {u"briefcase", 0xE943},                                  // work_outline
    {u"briefcase.fill", 0xE8F9},                             // work
    {u"bubble.left", 0xE0CB},                                // chat_bubble_outline
    {u"bubble.left.and.bubble.right", 0xE0BF},               // forum
    {u"bubble.left.fill", 0xE0CA},                           // chat_bubble
    {u"bubble.middle.bottom", 0xE253},                       // mode_comment
    {u"bubble.right", 0xE0CB},                               // chat_bubble_outline
    {u"bubble.right.fill", 0xE0CA},                          // chat_bubble
    {u"building", 0xE0AF},                                   // business
    {u"building.2", 0xEA40},                                 // apartment
    {u"building.columns", 0xE84F},                           // account_balance
    {u"bus", 0xE530},                                        // directions_bus
    {u"cable.connector", 0xEFE6},                            // cable
    {u"calendar", 0xE935},                                   // calendar_today
    {u"calendar.badge.plus", 0xE742},                        // edit_calendar
    {u"camera", 0xE412},                                     // photo_camera
    {u"camera.aperture", 0xE3AF},                            // camera
    {u"camera.fill", 0xE412},                                // photo_camera
    {u"camera.macro", 0xE545},                               // local_florist
    {u"camera.viewfinder", 0xE3B5},                          // center_focus_weak
    {u"capslock", 0xE318},                                   // keyboard_capslock
    {u"captions.bubble", 0xE01C},                            // closed_caption
    {u"car", 0xE531},                                        // directions_car
    {u"car.fill", 0xE531},                                   // directions_car
    {u"cart", 0xE8CC},                                       // shopping_cart
    {u"cart.badge.plus", 0xE854},                            // add_shopping_cart
    {u"cellularbars", 0xE202},                               // signal_cellular_alt
    {u"chair", 0xEFED},                                      // chair
    {u"character.bubble", 0xE8E2},                           // translate
    {u"chart.bar", 0xE26B},                                  // bar_chart
    {u"chart.bar.xaxis", 0xE26B},                            // bar_chart
    {u"chart.line.downtrend.xyaxis", 0xE8E3},                // trending_down
    {u"chart.line.uptrend.xyaxis", 0xE8E5},                  // trending_up
    {u"chart.pie", 0xF044},                                  // pie_chart_outline
    {u"chart.pie.fill", 0xE6C4},                             // pie_chart
    {u"chart.xyaxis.line", 0xE6E1},                          // show_chart
    {u"checklist", 0xE6B1},                                  // checklist
    {u"checkmark", 0xE5CA},                                  // check
    {u"checkmark.bubble", 0xF18B},                           // mark_chat_read
    {u"checkmark.circle", 0xE92D},                           // check_circle_outline
    {u"checkmark.circle.fill", 0xE86C},                      // check_circle
    {u"checkmark.seal", 0xEF76},                             // verified
    {u"checkmark.shield", 0xE8E8},                           // verified_user
    {u"checkmark.square", 0xE834},                           // check_box
    {u"chevron.backward", 0xE5CB},                           // chevron_left
    {u"chevron.compact.down", 0xE313},                       // keyboard_arrow_down
    {u"chevron.compact.up", 0xE316},                         // keyboard_arrow_up
    {u"chevron.down", 0xE5CF},                               // expand_more
    {u"chevron.down.circle", 0xE7CD},                        // expand_circle_down
    {u"chevron.forward", 0xE5CC},                            // chevron_right
    {u"chevron.left", 0xE5CB},                               // chevron_left
    {u"chevron.left.2", 0xEAC3},                             // keyboard_double_arrow_left
    {u"chevron.left.forwardslash.chevron.right", 0xE86F},    // code
    {u"chevron.right", 0xE5CC},                              // chevron_right
    {u"chevron.right.2", 0xEAC9},                            // keyboard_double_arrow_right
    {u"chevron.up", 0xE5CE},                                 // expand_less
    {u"chevron.up.chevron.down", 0xE5D7},                    // unfold_more
    {u"circle", 0xE836},                                     // radio_button_unchecked
    {u"circle.fill", 0xEF4A},                                // circle
    {u"circle.lefthalf.filled", 0xEB37},                     // contrast
    {u"circle.righthalf.filled", 0xEB37},                    // contrast
    {u"circle.slash", 0xE14B},                               // block
    {u"clipboard", 0xE14F},                                  // content_paste
    {u"clock", 0xE8B5},                                      // schedule
    {u"clock.arrow.circlepath", 0xE889},                     // history
    {u"cloud", 0xE2C2},                                      // cloud_queue
    {u"cloud.bolt", 0xEBDB},                                 // thunderstorm
    {u"cloud.fill", 0xE2BD},                                 // cloud
    {u"cloud.fog", 0xE818},                                  // foggy
    {u"cloud.moon", 0xEA46},                                 // nights_stay
    {u"cloud.rain", 0xF1AD},                                 // umbrella
    {u"cloud.snow", 0xE810},                                 // cloudy_snowing
    {u"cloud.sun", 0xE3DD},                                  // filter_drama
    {u"command", 0xEAE7},                                    // keyboard_command_key
    {u"control", 0xEAE6},                                    // keyboard_control_key
    {u"cpu", 0xE322},                                        // memory
    {u"creditcard", 0xE870},                                 // credit_card
    {u"crop", 0xE3BE},                                       // crop
    {u"crop.rotate", 0xE437},                                // crop_rotate
    {u"cross.case", 0xF109},                                 // medical_services
    {u"crown", 0xE7AF},                                      // workspace_premium
    {u"cube", 0xE9FE},                                       // view_in_ar
    {u"cube.box", 0xE1A1},                                   // inventory_2
    {u"cup.and.saucer", 0xEFEF},                             // coffee
    {u"curlybraces", 0xEAD3},                                // data_object
    {u"decrease.indent", 0xE23D},                            // format_indent_decrease
    {u"delete.left", 0xE14A},                                // backspace
    {u"desktopcomputer", 0xE30C},                            // desktop_windows
    {u"diamond", 0xEAD5},                                    // diamond
    {u"dice", 0xEB40},                                       // casino
    {u"display", 0xEF5B},                                    // monitor
    {u"doc", 0xE24D},                                        // insert_drive_file
    {u"doc.badge.plus", 0xE89C},                             // note_add
    {u"doc.fill", 0xE24D},                                   // insert_drive_file
    {u"doc.on.clipboard", 0xE14F},                           // content_paste
    {u"doc.on.doc", 0xE14D},                                 // content_copy
    {u"doc.plaintext", 0xEF42},                              // article
    {u"doc.richtext", 0xEF42},                               // article
    {u"doc.text", 0xE873},                                   // description
    {u"doc.text.magnifyingglass", 0xE880},                   // find_in_page
    {u"doc.text.viewfinder", 0xE5FA},                        // document_scanner
    {u"doc.viewfinder", 0xE5FA},                             // document_scanner
    {u"doc.zipper", 0xEB2C},                                 // folder_zip
    {u"dollarsign", 0xE227},                                 // attach_money
    {u"dollarsign.circle", 0xE263},                          // monetization_on
    {u"door.left.hand.open", 0xEFFD},                        // door_front
    {u"dot.radiowaves.left.and.right", 0xE51E},              // sensors
    {u"drop", 0xE798},                                       // water_drop
    {u"dumbbell", 0xEB43},                                   // fitness_center
    {u"ear", 0xE023},                                        // hearing
    {u"eject", 0xE8FB},                                      // eject
    {u"ellipsis", 0xE5D3},                                   // more_horiz
    {u"ellipsis.bubble", 0xE625},                            // sms
    {u"envelope", 0xE0E1},                                   // mail_outline
    {u"envelope.badge", 0xF18A},                             // mark_email_unread
    {u"envelope.fill", 0xE158},                              // mail
    {u"envelope.open", 0xE151},                              // drafts
    {u"eurosign", 0xEA15},                                   // euro
    {u"ev.charger", 0xE56D},                                 // ev_station
    {u"exclamationmark", 0xE645},                            // priority_high
    {u"exclamationmark.bubble", 0xE87F},                     // feedback
    {u"exclamationmark.circle", 0xE001},                     // error_outline
    {u"exclamationmark.circle.fill", 0xE000},                // error
    {u"exclamationmark.octagon", 0xE160},                    // report
    {u"exclamationmark.shield", 0xF014},                     // gpp_maybe
    {u"exclamationmark.triangle", 0xF083},                   // warning_amber
    {u"exclamationmark.triangle.fill", 0xE002},              // warning
    {u"externaldrive", 0xE1DB},                              // storage
    {u"eye", 0xE8F4},                                        // visibility
    {u"eye.fill", 0xE8F4},                                   // visibility
    {u"eye.slash", 0xE8F5},                                  // visibility_off
    {u"face.smiling", 0xE813},                               // sentiment_satisfied
    {u"faceid", 0xE87C},                                     // face
    {u"faxmachine", 0xEAD8},                                 // fax
    {u"ferry", 0xE532},                                      // directions_boat
    {u"figure.roll", 0xE914},                                // accessible
    {u"figure.run", 0xE566},                                 // directions_run
    {u"figure.walk", 0xE536},                                // directions_walk
    {u"film", 0xE02C},                                       // movie
    {u"flag", 0xE16E},                                       // outlined_flag
    {u"flag.checkered", 0xF06E},                             // sports_score
    {u"flag.fill", 0xE153},                                  // flag
    {u"flame", 0xEF55},                                      // local_fire_department
    {u"flashlight.off.fill", 0xF00A},                        // flashlight_off
    {u"flashlight.on.fill", 0xF00B},                         // flashlight_on
    {u"folder", 0xE2C7},                                     // folder
    {u"folder.badge.person.crop", 0xE2C9},                   // folder_shared
    {u"folder.badge.plus", 0xE2CC},                          // create_new_folder
    {u"folder.fill", 0xE2C7},                                // folder
    {u"football", 0xEA29},                                   // sports_football
    {u"fork.knife", 0xE56C},                                 // restaurant
    {u"forward", 0xE01F},                                    // fast_forward
    {u"forward.end", 0xE044},                                // skip_next
    {u"forward.end.fill", 0xE044},                           // skip_next
    {u"forward.fill", 0xE01F},                               // fast_forward
    {u"fuelpump", 0xE546},                                   // local_gas_station
    {u"function", 0xE24A},                                   // functions
    {u"gamecontroller", 0xEA28},                             // sports_esports
    {u"gauge", 0xE9E4},                                      // speed
    {u"gear", 0xE8B8},                                       // settings
    {u"gearshape", 0xE8B8},                                  // settings
    {u"gearshape.2", 0xF10C},                                // miscellaneous_services
    {u"gearshape.fill", 0xE8B8},                             // settings
    {u"gift", 0xE8F6},                                       // card_giftcard
    {u"giftcard", 0xE8F6},                                   // card_giftcard
    {u"globe", 0xE80B},                                      // public
    {u"globe.americas", 0xE80B},                             // public
    {u"globe.europe.africa", 0xE80B},                        // public
    {u"gobackward", 0xE042},                                 // replay
    {u"gobackward.10", 0xE059},                              // replay_10
    {u"gobackward.30", 0xE05A},                              // replay_30
    {u"gobackward.5", 0xE05B},                               // replay_5
    {u"goforward", 0xE056},                                  // forward_10
    {u"goforward.10", 0xE056},                               // forward_10
    {u"goforward.30", 0xE057},                               // forward_30
    {u"goforward.5", 0xE058},                                // forward_5
    {u"graduationcap", 0xE80C},                              // school
    {u"hammer", 0xEA3C},                                     // construction
    {u"hand.draw", 0xE155},                                  // gesture
    {u"hand.raised", 0xE925},                                // pan_tool
    {u"hand.raised.slash", 0xF1B0},                          // do_not_touch
    {u"hand.tap", 0xE913},                                   // touch_app
    {u"hand.thumbsdown", 0xE9F2},                            // thumb_down_off_alt
    {u"hand.thumbsdown.fill", 0xE8DB},                       // thumb_down
    {u"hand.thumbsup", 0xE9F3},                              // thumb_up_off_alt
    {u"hand.thumbsup.fill", 0xE8DC},                         // thumb_up
    {u"hand.wave", 0xE766},                                  // waving_hand
    {u"headphones", 0xF01F},                                 // headphones
    {u"hearingdevice.ear", 0xE023},                          // hearing
    {u"heart", 0xE87E},                                      // favorite_border
    {u"heart.fill", 0xE87D},                                 // favorite
    {u"heart.slash", 0xEAC2},                                // heart_broken
    {u"hexagon", 0xEB39},                                    // hexagon
    {u"hifispeaker", 0xE32D},                                // speaker
    {u"highlighter", 0xE25F},                                // highlight
    {u"hourglass", 0xE88B},                                  // hourglass_empty
    {u"hourglass.bottomhalf.filled", 0xEA5C},                // hourglass_bottom
    {u"hourglass.tophalf.filled", 0xEA5B},                   // hourglass_top
    {u"house", 0xE88A},                                      // home
    {u"house.fill", 0xE88A},                                 // home
    {u"icloud", 0xE2C2},                                     // cloud_queue
    {u"icloud.and.arrow.down", 0xE2C0},                      // cloud_download
    {u"icloud.and.arrow.up", 0xE2C3},                        // cloud_upload
    {u"icloud.fill", 0xE2BD},                                // cloud
    {u"icloud.slash", 0xE2C1},                               // cloud_off
    {u"increase.indent", 0xE23E},                            // format_indent_increase
    {u"info", 0xE88E},                                       // info
    {u"info.circle", 0xE88F},                                // info_outline
    {u"info.circle.fill", 0xE88E},                           // info
    {u"internaldrive", 0xE1DB},                              // storage
    {u"ipad", 0xE32F},                                       // tablet
    {u"iphone", 0xE32C},                                     // smartphone
    {u"italic", 0xE23F},                                     // format_italic
    {u"key", 0xE73C},                                        // key
    {u"key.fill", 0xE73C},                                   // key
    {u"keyboard", 0xE312},                                   // keyboard
    {u"ladybug", 0xE868},                                    // bug_report
    {u"laptopcomputer", 0xE31E},                             // laptop
    {u"lasso", 0xEF52},                                      // highlight_alt
    {u"leaf", 0xEA35},                                       // eco
    {u"leaf.arrow.triangle.circlepath", 0xE760},             // recycling
    {u"lifepreserver", 0xEF73},                              // support
    {u"lightbulb", 0xE90F},                                  // lightbulb_outline
    {u"lightbulb.fill", 0xE0F0},                             // lightbulb
    {u"lightswitch.on", 0xE9F6},                             // toggle_on
    {u"line.3.horizontal", 0xE5D2},                          // menu
    {u"line.3.horizontal.decrease", 0xE152},                 // filter_list
    {u"link", 0xE157},                                       // link
    {u"link.badge.plus", 0xE178},                            // add_link
    {u"list.bullet", 0xE241},                                // format_list_bulleted
    {u"list.bullet.clipboard", 0xE85D},                      // assignment
    {u"list.bullet.indent", 0xE23E},                         // format_indent_increase
    {u"list.bullet.rectangle", 0xE0EE},                      // list_alt
    {u"list.clipboard", 0xE85D},                             // assignment
    {u"list.dash", 0xE896},                                  // list
    {u"list.number", 0xE242},                                // format_list_numbered
    {u"livephoto", 0xE9C1},                                  // motion_photos_on
    {u"location", 0xE569},                                   // near_me
    {u"location.fill", 0xE569},                              // near_me
    {u"location.north", 0xE55D},                             // navigation
    {u"location.slash", 0xE0C7},                             // location_off
    {u"lock", 0xE897},                                       // lock
    {u"lock.fill", 0xE897},                                  // lock
    {u"lock.open", 0xE898},                                  // lock_open
    {u"lock.shield", 0xE32A},                                // security
    {u"lock.slash", 0xE641},                                 // no_encryption
    {u"macwindow", 0xE069},                                  // web_asset
    {u"magnifyingglass", 0xE8B6},                            // search
    {u"map", 0xE55B},                                        // map
    {u"mappin", 0xE55F},                                     // place
    {u"mappin.and.ellipse", 0xE0C8},                         // location_on
    {u"mappin.slash", 0xE0C7},                               // location_off
    {u"medal", 0xEA3F},                                      // military_tech
    {u"megaphone", 0xEF49},                                  // campaign
    {u"memorychip", 0xE322},                                 // memory
    {u"message", 0xE0CB},                                    // chat_bubble_outline
    {u"message.fill", 0xE0CA},                               // chat_bubble
    {u"mic", 0xE029},                                        // mic
    {u"mic.fill", 0xE029},                                   // mic
    {u"mic.slash", 0xE02B},                                  // mic_off
    {u"minus", 0xE15B},                                      // remove
    {u"minus.circle", 0xE15D},                               // remove_circle_outline
    {u"minus.circle.fill", 0xE15C},                          // remove_circle
    {u"minus.magnifyingglass", 0xE900},                      // zoom_out
    {u"minus.square", 0xE909},                               // indeterminate_check_box
    {u"moon", 0xEF44},                                       // bedtime
    {u"moon.fill", 0xEF44},                                  // bedtime
    {u"moon.stars", 0xEA46},                                 // nights_stay
    {u"moon.zzz", 0xEF44},                                   // bedtime
    {u"mountain.2", 0xE3F7},                                 // landscape
    {u"mug", 0xEFEF},                                        // coffee
    {u"multiply", 0xE5CD},                                   // close
    {u"music.mic", 0xEF5A},                                  // mic_external_on
    {u"music.note", 0xE405},                                 // music_note
    {u"music.note.house", 0xE32E},                           // speaker_group
    {u"music.note.list", 0xE03D},                            // queue_music
    {u"music.quarternote.3", 0xE405},                        // music_note
    {u"network", 0xEB2F},                                    // lan
    {u"newspaper", 0xEB81},                                  // newspaper
    {u"nosign", 0xE14B},                                     // block
    {u"note", 0xE06F},                                       // note
    {u"note.text", 0xF1FC},                                  // sticky_note_2
    {u"note.text.badge.plus", 0xE89C},                       // note_add
    {u"number", 0xE9EF},                                     // tag
    {u"opticaldisc", 0xE019},                                // album
    {u"option", 0xEAE8},                                     // keyboard_option_key
    {u"paintbrush", 0xE3AE},                                 // brush
    {u"paintbrush.fill", 0xE3AE},                            // brush
    {u"paintpalette", 0xE40A},                               // palette
    {u"paperclip", 0xE226},                                  // attach_file
    {u"paperplane", 0xE163},                                 // send
    {u"paperplane.fill", 0xE163},                            // send
    {u"party.popper", 0xEA65},                               // celebration
    {u"pause", 0xE034},                                      // pause
    {u"pause.circle", 0xE036},                               // pause_circle_outline
    {u"pause.circle.fill", 0xE035},                          // pause_circle_filled
    {u"pause.fill", 0xE034},                                 // pause
    {u"pawprint", 0xE91D},                                   // pets
    {u"pc", 0xE30A},                                         // computer
    {u"pencil", 0xE3C9},                                     // edit
    {u"pencil.and.ruler", 0xF10A},                           // design_services
    {u"pencil.tip", 0xE3C9},                                 // edit
    {u"percent", 0xEB58},                                    // percent
    {u"person", 0xE7FF},                                     // person_outline
    {u"person.2", 0xE7FC},                                   // people_outline
    {u"person.2.fill", 0xE7FB},                              // people
    {u"person.3", 0xF233},                                   // groups
    {u"person.badge.minus", 0xEF66},                         // person_remove
    {u"person.badge.plus", 0xE7FE},                          // person_add
    {u"person.circle", 0xE853},                              // account_circle
    {u"person.crop.circle", 0xE853},                         // account_circle
    {u"person.crop.circle.badge.checkmark", 0xE174},         // how_to_reg
    {u"person.crop.circle.badge.plus", 0xE7FE},              // person_add
    {u"person.crop.circle.badge.xmark", 0xE510},             // person_off
    {u"person.crop.square", 0xE851},                         // account_box
    {u"person.fill", 0xE7FD},                                // person
    {u"person.wave.2", 0xE91F},                              // record_voice_over
    {u"personalhotspot", 0xE1E2},                            // wifi_tethering
    {u"phone", 0xE0CD},                                      // phone
    {u"phone.arrow.up.right", 0xE0B2},                       // call_made
    {u"phone.badge.plus", 0xE0E8},                           // add_call
    {u"phone.down", 0xE0B1},                                 // call_end
    {u"phone.fill", 0xE0CD},                                 // phone
    {u"photo", 0xE3F4},                                      // image
    {u"photo.fill", 0xE3F4},                                 // image
    {u"photo.on.rectangle", 0xE413},                         // photo_library
    {u"pianokeys", 0xE521},                                  // piano
    {u"pills", 0xF033},                                      // medication
    {u"pin.fill", 0xF10D},                                   // push_pin
    {u"pip", 0xE8AA},                                        // picture_in_picture
    {u"play", 0xE037},                                       // play_arrow
    {u"play.circle", 0xE039},                                // play_circle_outline
    {u"play.circle.fill", 0xE038},                           // play_circle_filled
    {u"play.fill", 0xE037},                                  // play_arrow
    {u"play.rectangle", 0xF06A},                             // smart_display
    {u"playpause", 0xE037},                                  // play_arrow
    {u"plus", 0xE145},                                       // add
    {u"plus.app", 0xE146},                                   // add_box
    {u"plus.bubble", 0xE266},                                // add_comment
    {u"plus.circle", 0xE148},                                // add_circle_outline
    {u"plus.circle.fill", 0xE147},                           // add_circle
    {u"plus.magnifyingglass", 0xE8FF},                       // zoom_in
    {u"plus.square", 0xE146},                                // add_box
    {u"plus.square.on.square", 0xE02E},                      // library_add
    {u"point.3.connected.trianglepath.dotted", 0xE9F4},      // hub
    {u"power", 0xE8AC},                                      // power_settings_new
    {u"poweroutlet.type.b", 0xF1D4},                         // outlet
    {u"powerplug", 0xE63C},                                  // power
    {u"powersleep", 0xEF44},                                 // bedtime
    {u"printer", 0xE8AD},                                    // print
    {u"puzzlepiece.extension", 0xE87B},                      // extension
    {u"puzzlepiece.extension.fill", 0xE87B},                 // extension
    {u"qrcode", 0xEF6B},                                     // qr_code
    {u"qrcode.viewfinder", 0xF206},                          // qr_code_scanner
    {u"questionmark", 0xEB8B},                               // question_mark
    {u"questionmark.bubble", 0xE0C6},                        // live_help
    {u"questionmark.circle", 0xE8FD},                        // help_outline
    {u"questionmark.circle.fill", 0xE887},                   // help
    {u"quote.opening", 0xE244},                              // format_quote
    {u"radio", 0xE03E},                                      // radio
    {u"record.circle", 0xE837},                              // radio_button_checked
    {u"rectangle", 0xE3C3},                                  // crop_landscape
    {u"rectangle.grid.2x2", 0xE9B0},                         // grid_view
    {u"rectangle.on.rectangle", 0xE3E0},                     // filter_none
    {u"rectangle.portrait", 0xE3C5},                         // crop_portrait
    {u"rectangle.portrait.and.arrow.forward", 0xE9BA},       // logout
    {u"rectangle.portrait.and.arrow.right", 0xE9BA},         // logout
    {u"rectangle.split.1x2", 0xE947},                        // horizontal_split
    {u"rectangle.split.2x1", 0xE949},                        // vertical_split
    {u"refrigerator", 0xEB47},                               // kitchen
    {u"repeat", 0xE040},                                     // repeat
    {u"repeat.1", 0xE041},                                   // repeat_one
    {u"restart", 0xF053},                                    // restart_alt
    {u"return", 0xE31B},                                     // keyboard_return
    {u"rotate.left", 0xE419},                                // rotate_left
    {u"rotate.right", 0xE41A},                               // rotate_right
    {u"ruler", 0xE41C},                                      // straighten
    {u"safari", 0xE87A},                                     // explore
    {u"sailboat", 0xE502},                                   // sailing
    {u"scanner", 0xE329},                                    // scanner
    {u"scissors", 0xE14E},                                   // content_cut
    {u"scooter", 0xEB1F},                                    // electric_scooter
    {u"scope", 0xE1B3},                                      // gps_fixed
    {u"screwdriver", 0xE869},                                // build
    {u"scribble", 0xE155},                                   // gesture
    {u"sdcard", 0xE623},                                     // sd_card
    {u"seal", 0xEF76},                                       // verified
    {u"sensor", 0xE51E},                                     // sensors
    {u"server.rack", 0xE875},                                // dns
    {u"shield", 0xE9E0},                                     // shield
    {u"shippingbox", 0xE1A1},                                // inventory_2
    {u"shower", 0xF061},                                     // shower
    {u"shuffle", 0xE043},                                    // shuffle
    {u"sidebar.left", 0xF114},                               // view_sidebar
    {u"sidebar.right", 0xF114},                              // view_sidebar
    {u"signature", 0xE746},                                  // draw
    {u"signpost.right", 0xEB91},                             // signpost
    {u"simcard", 0xE32B},                                    // sim_card
    {u"slash.circle", 0xE612},                               // do_not_disturb
    {u"slider.horizontal.3", 0xE429},                        // tune
    {u"slider.vertical.3", 0xE429},                          // tune
    {u"snowflake", 0xEB3B},                                  // ac_unit
    {u"soccerball", 0xEA2F},                                 // sports_soccer
    {u"sofa", 0xE16B},                                       // weekend
    {u"space", 0xE256},                                      // space_bar
    {u"sparkle", 0xE65F},                                    // auto_awesome
    {u"sparkles", 0xE65F},                                   // auto_awesome
    {u"speaker", 0xE04E},                                    // volume_mute
    {u"speaker.fill", 0xE04E},                               // volume_mute
    {u"speaker.slash", 0xE04F},                              // volume_off
    {u"speaker.slash.fill", 0xE04F},                         // volume_off
    {u"speaker.wave.1", 0xE04D},                             // volume_down
    {u"speaker.wave.1.fill", 0xE04D},                        // volume_down
    {u"speaker.wave.2", 0xE050},                             // volume_up
    {u"speaker.wave.2.fill", 0xE050},                        // volume_up
    {u"speaker.wave.3", 0xE050},                             // volume_up
    {u"speaker.wave.3.fill", 0xE050},                        // volume_up
    {u"speedometer", 0xE9E4},                                // speed
    {u"square", 0xE3C6},                                     // crop_square
    {u"square.and.arrow.down", 0xF090},                      // download
    {u"square.and.arrow.up", 0xE6B8},                        // ios_share
    {u"square.and.pencil", 0xE745},                          // edit_note
    {u"square.dashed", 0xE3C2},                              // crop_free
    {u"square.fill", 0xEB36},                                // square
    {u"square.grid.2x2", 0xE9B0},                            // grid_view
    {u"square.grid.3x3", 0xE5C3},                            // apps
    {u"square.on.square", 0xE14D},                           // content_copy
    {u"square.stack", 0xE3E0},                               // filter_none
    {u"square.stack.3d.up", 0xE53B},                         // layers
    {u"star", 0xE83A},                                       // star_border
    {u"star.fill", 0xE838},                                  // star
    {u"star.leadinghalf.filled", 0xE839},                    // star_half
    {u"stethoscope", 0xF109},                                // medical_services
    {u"stop", 0xE047},                                       // stop
    {u"stop.circle", 0xEF71},                                // stop_circle
    {u"stop.circle.fill", 0xEF71},                           // stop_circle
    {u"stop.fill", 0xE047},                                  // stop
    {u"stopwatch", 0xE425},                                  // timer
    {u"storefront", 0xEA12},                                 // storefront
    {u"strikethrough", 0xE257},                              // strikethrough_s
    {u"sum", 0xE24A},                                        // functions
    {u"sun.max", 0xE430},                                    // wb_sunny
    {u"sun.max.fill", 0xE1AC},                               // brightness_high
    {u"sun.min", 0xE1AD},                                    // brightness_low
    {u"sun.min.fill", 0xE1AD},                               // brightness_low
    {u"sunrise", 0xE1C6},                                    // wb_twilight
    {u"sunset", 0xE1C6},                                     // wb_twilight
    {u"switch.2", 0xE9F6},                                   // toggle_on
    {u"tag", 0xE54E},                                        // local_offer
    {u"tag.fill", 0xE54E},                                   // local_offer
    {u"takeoutbag.and.cup.and.straw", 0xE57A},               // fastfood
    {u"target", 0xE8E1},                                     // track_changes
    {u"tennis.racket", 0xEA32},                              // sports_tennis
    {u"terminal", 0xEB8E},                                   // terminal
    {u"text.aligncenter", 0xE234},                           // format_align_center
    {u"text.alignleft", 0xE236},                             // format_align_left
    {u"text.alignright", 0xE237},                            // format_align_right
    {u"text.book.closed", 0xEA19},                           // menu_book
    {u"text.bubble", 0xE0D8},                                // textsms
    {u"text.justify", 0xE235},                               // format_align_justify
    {u"text.magnifyingglass", 0xF02F},                       // manage_search
    {u"text.quote", 0xE244},                                 // format_quote
    {u"textformat", 0xE165},                                 // text_format
    {u"textformat.123", 0xEB8D},                             // 123
    {u"textformat.abc", 0xEB94},                             // abc
    {u"textformat.size", 0xE245},                            // format_size
    {u"theatermasks", 0xEA66},                               // theater_comedy
    {u"thermometer", 0xF076},                                // thermostat
    {u"thermometer.snowflake", 0xEBD3},                      // severe_cold
    {u"timer", 0xE425},                                      // timer
    {u"togglepower", 0xE8AC},                                // power_settings_new
    {u"toilet", 0xE63D},                                     // wc
    {u"tornado", 0xE199},                                    // tornado
    {u"touchid", 0xE90D},                                    // fingerprint
    {u"train.side.front.car", 0xE570},                       // train
    {u"tram", 0xE571},                                       // tram
    {u"translate", 0xE8E2},                                  // translate
    {u"trash", 0xE92E},                                      // delete_outline
    {u"trash.fill", 0xE872},                                 // delete
    {u"tray", 0xE156},                                       // inbox
    {u"tray.2", 0xE97F},                                     // all_inbox
    {u"tray.and.arrow.down", 0xE168},                        // move_to_inbox
    {u"tray.and.arrow.up", 0xEF5F},                          // outbox
    {u"tray.fill", 0xE156},                                  // inbox
    {u"tray.full", 0xE97F},                                  // all_inbox
    {u"tree", 0xEA63},                                       // park
    {u"triangle", 0xE86B},                                   // change_history
    {u"trophy", 0xEA23},                                     // emoji_events
    {u"tv", 0xE333},                                         // tv
    {u"umbrella", 0xF1AD},                                   // umbrella
    {u"underline", 0xE249},                                  // format_underlined
    {u"video", 0xE04B},                                      // videocam
    {u"video.badge.plus", 0xE070},                           // video_call
    {u"video.fill", 0xE04B},                                 // videocam
    {u"video.slash", 0xE04C},                                // videocam_off
    {u"viewfinder", 0xE3B5},                                 // center_focus_weak
    {u"wallet.pass", 0xF8FF},                                // wallet
    {u"wand.and.rays", 0xE663},                              // auto_fix_high
    {u"wand.and.stars", 0xE663},                             // auto_fix_high
    {u"washer", 0xE54A},                                     // local_laundry_service
    {u"waveform", 0xE1B8},                                   // graphic_eq
    {u"waveform.path.ecg", 0xEAA2},                          // monitor_heart
    {u"wifi", 0xE63E},                                       // wifi
    {u"wifi.exclamationmark", 0xF063},                       // signal_wifi_bad
    {u"wifi.router", 0xE328},                                // router
    {u"wifi.slash", 0xE648},                                 // wifi_off
    {u"wind", 0xEFD8},                                       // air
    {u"wineglass", 0xF1E8},                                  // wine_bar
    {u"wrench", 0xE869},                                     // build
    {u"wrench.adjustable", 0xE869},                          // build
    {u"wrench.and.screwdriver", 0xF10B},                     // handyman
    {u"xmark", 0xE5CD},                                      // close
    {u"xmark.bin", 0xE92B},                                  // delete_forever
    {u"xmark.circle", 0xE888},                               // highlight_off
    {u"xmark.circle.fill", 0xE5C9},                          // cancel
    {u"xmark.octagon", 0xE160},                              // report
    {u"xmark.square", 0xF230},                               // disabled_by_default
    {u"zzz", 0xE046},                                        // snooze
};

static_assert(std::ranges::is_sorted(glyphs, {}, &SymbolGlyph::name), "symbol names are sorted");
static_assert(std::ranges::adjacent_find(glyphs, {}, &SymbolGlyph::name) == std::end(glyphs),
              "each symbol name appears once");

const SymbolGlyph* find(std::u16string_view name) {
    const auto* found = std::ranges::lower_bound(glyphs, name, {}, &SymbolGlyph::name);
    return found != std::end(glyphs) && found->name == name ? found : nullptr;
}

bool droppable(std::u16string_view modifier) {
    return modifier == u"fill" || modifier == u"circle" || modifier == u"square";
}

} // namespace

SymbolGlyphs::SymbolGlyphs(QObject* parent)
    : QObject(parent) {}

std::span<const SymbolGlyph> SymbolGlyphs::table() {
    return glyphs;
}

QString SymbolGlyphs::fontPath() {
    return QStringLiteral(
        "/usr/share/fonts/truetype/material-design-icons-iconfont/MaterialIcons-Regular.ttf");
}

QString SymbolGlyphs::fontFamily() {
    static const QString family = [] {
        const QStringList families =
            QFontDatabase::applicationFontFamilies(QFontDatabase::addApplicationFont(fontPath()));
        if (families.isEmpty()) {
            qCWarning(lcApp) << "symbol font missing:" << fontPath();
            return QStringLiteral("Material Icons");
        }
        return families.first();
    }();
    return family;
}

char32_t SymbolGlyphs::codePoint(QStringView name) {
    std::u16string_view rest(name.utf16(), std::size_t(name.size()));
    while (true) {
        if (const SymbolGlyph* found = find(rest))
            return found->codePoint;
        const std::size_t dot = rest.rfind(u'.');
        if (dot == std::u16string_view::npos || !droppable(rest.substr(dot + 1)))
            return 0;
        rest = rest.substr(0, dot);
    }
}

QString SymbolGlyphs::glyph(const QString& name) {
    const char32_t point = codePoint(name);
    return point ? QString::fromUcs4(&point, 1) : QString();
}

} // namespace vell
