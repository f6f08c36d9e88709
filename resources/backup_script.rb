#!/usr/bin/ruby --disable-gems
# encoding: ASCII-8BIT
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# An Orvane backup. The Orvane pane makes this script from its template and
# installs it; cron, anacron or manual_backup run it as root. Paths are kept
# as the bytes that name them on disk.

# Every path and every line of output is bytes: a name is whatever bytes
# name it on disk, in any locale cron or manual_backup gives the run.
Encoding.default_external = Encoding::BINARY
Encoding.default_internal = nil

# Libraries load when they are needed: a run with nothing to copy should
# cost little more than the copy tool itself.
autoload :FileUtils, "fileutils"
autoload :Open3, "open3"
autoload :Etc, "etc"

frequency = "Daily"
#ov_frequency
backupCommand = "/usr/local/bin/psync"
#ov_backupCommand
sourceFolders = []
#ov_sourceFolders
destFolders = []
#ov_destFolders
logfile = "/var/log/orvane_daily.log"
#ov_logfile
lastBackup = "/Library/Application Support/Orvane/.daily/.lastbackup"
#ov_lastBackup
toastApplicationName = "Toast Titanium"
#ov_toastApplicationName
username = "root"
#ov_username
remoteBackup = false
#ov_remoteBackup
showProgress = false
repairPermissions = false
promptBeforeBackup = false
shouldWaitUntilAway = false
autoConnect = false
remoteServerName = ""
remoteAccountName = ""
remoteVolumeName = ""
shouldArchive = false
shouldArchive = shouldArchive
maxArchives = 0
safetyNetFolder = ""
safetyNetFolder = safetyNetFolder
archiveContents = ""
runKind = "scheduled"

class OrvaneBackup
  RESOURCES = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
  NOTICE = File.join(RESOURCES, "orvane-notice")
  AUTOMOUNT = File.join(RESOURCES, "automount")
  # Below this much free space a destination counts as full.
  MIN_FREE_BYTES = 1024 * 1024
  # Waiting for the user to be away ends after this long.
  AWAY_SECONDS = 10 * 60
  MAX_WAIT_SECONDS = 6 * 60 * 60
  FREQUENCIES = %w[Daily Weekly Monthly].freeze
  # What psync leaves at a target besides the backup itself.
  PSYNC_ENTRIES = %w[.psync-work .psync-attributes].freeze
  # rsync's --info=progress2 line: bytes, percent, rate, time, and once a
  # file has gone "(xfr#N, to-chk=LEFT/TOTAL)" (ir-chk while still listing).
  PROGRESS_LINE = /\A\s*([\d,]+)\s+(\d+)%.*?(?:[it][or]-chk=(\d+)\/(\d+))?\)?\s*\z/

  attr_reader :errors

  def initialize(settings)
    @s = settings
    @frequency = FREQUENCIES.include?(settings[:frequency]) ? settings[:frequency] : "Daily"
    @errors = []
    @started = Time.now
    @disks = nil
    @archive_name = nil
    @net = nil
    @progress_written = nil
    @progress_notice = nil
  end

  def run_flag = "/tmp/ov_#{@frequency}.run"
  def error_file = "/var/log/.orvane_#{@frequency.downcase}.err"
  def progress_file = "/tmp/ov_#{@frequency}.progress"
  def manual? = @s[:runKind] == "manual"
  # Where the file system of each source and destination at its last
  # successful run is kept: beside the last-backup marker.
  def disks_file = File.join(File.dirname(@s[:lastBackup]), ".disks")

  # Whatever stands at a path goes (file, link, folder of anyone), never
  # following a link: a path in /tmp may have been planted by any user.
  def self.clear(path)
    stat = File.lstat(path)
  rescue Errno::ENOENT, Errno::ENOTDIR
    nil
  else
    stat.directory? ? FileUtils.remove_entry_secure(path) : File.unlink(path)
  end

  # Makes a file anew (O_EXCL, O_NOFOLLOW), whatever stood at its path.
  def self.write_fresh(path, data, mode = 0o644)
    3.times do
      clear(path)
      begin
        return File.open(path, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW | File::BINARY, mode) do |f|
          f.write(data)
        end
      rescue Errno::EEXIST
        next # someone was quicker; clear again
      end
    end
    raise Errno::EEXIST, path
  end

  # Replaces a file in one step: a new file beside it, renamed over it. A
  # reader sees the old content or the new, never a part.
  def self.replace(path, data, mode = 0o644)
    temporary = "#{path}.#{Process.pid}.#{rand(1 << 32)}"
    File.open(temporary, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW | File::BINARY, mode) { |f| f.write(data) }
    File.rename(temporary, path)
  rescue SystemCallError
    File.unlink(temporary) rescue nil
    raise
  end

  def self.bytes(text) = text.to_s.b
  def self.plural(count, word) = "#{count} #{word}#{count == 1 ? '' : 's'}"

  def log(message)
    line = "#{Time.now.strftime('%Y-%m-%d %H:%M:%S')} #{@frequency}: #{OrvaneBackup.bytes(message)}\n".b
    File.open(@s[:logfile], "ab", 0o644) { |f| f.write(line) }
  rescue SystemCallError => e
    $stderr.write("orvane: cannot write the log #{@s[:logfile]}: #{e.message}\n".b + line.to_s)
  end

  def error(message)
    @errors << OrvaneBackup.bytes(message)
    log("ERROR: #{OrvaneBackup.bytes(message)}")
    nil
  end

  # The whole run. Returns the exit status: 0 done, 1 done with errors,
  # 3 not run (the user declined it).
  def run
    begin
      wait_until_away if @s[:shouldWaitUntilAway]
      if @s[:promptBeforeBackup] && !user_agrees?
        log("skipped: the user chose not to back up now")
        return 3
      end
    rescue StandardError => e
      log("could not ask the user first (#{e.class}: #{OrvaneBackup.bytes(e.message)}); backing up anyway")
    end
    begin
      # A flag or progress file left by a dead run, or planted, is stale.
      OrvaneBackup.clear(progress_file)
      OrvaneBackup.write_fresh(run_flag, "#{Process.pid}\n")
    rescue StandardError => e
      error("the run flag #{run_flag} could not be made (#{OrvaneBackup.bytes(e.message)}); the pane will not show this backup as running")
    end
    begin
      OrvaneBackup.clear(error_file)
      log("#{manual? ? 'manual ' : ''}backup started (#{OrvaneBackup.plural(@s[:sourceFolders].size, 'folder')})")
      back_up_all
    rescue StandardError, ScriptError, NoMemoryError, SystemStackError => e
      error("the backup stopped unexpectedly (#{e.class}: #{OrvaneBackup.bytes(e.message)}); folders not yet backed up keep their earlier backup")
    rescue SignalException => e
      error("the backup was stopped (#{e.signm}) before it ended; folders not yet backed up keep their earlier backup")
    ensure
      finish
      [progress_file, run_flag].each { |f| OrvaneBackup.clear(f) rescue nil }
    end
    @errors.empty? ? 0 : 1
  end

  def back_up_all
    mount_remote_volume if @s[:remoteBackup]
    if @s[:repairPermissions]
      log("repair permissions: every copy keeps each file's owner, group and permissions, and " \
          "Linux has no store of system permissions to repair; nothing more to do")
    end
    @s[:sourceFolders].each_with_index do |source, i|
      destination = @s[:destFolders][i]
      begin
        back_up(OrvaneBackup.bytes(source), OrvaneBackup.bytes(destination), i)
      rescue StandardError => e
        error("#{source} -> #{destination}: the backup of this folder stopped unexpectedly " \
              "(#{e.class}: #{OrvaneBackup.bytes(e.message)}); files not yet copied keep their earlier version")
      end
    end
  end

  def finish
    @net&.close
    prune_archives if @s[:shouldArchive]
    save_disks
    unmount_remote_volume
    begin
      OrvaneBackup.write_fresh(@s[:lastBackup], @started.strftime("%m/%d/%y"))
    rescue StandardError => e
      error("the date of this backup could not be written to #{@s[:lastBackup]} (#{OrvaneBackup.bytes(e.message)})")
    end
    unless @errors.empty?
      stamp = Time.now.strftime("%Y-%m-%d %H:%M:%S")
      begin
        OrvaneBackup.write_fresh(error_file, @errors.map { |e| "#{stamp} #{e}\n".b }.join.b)
      rescue StandardError => e
        log("ERROR: the error file #{error_file} could not be written (#{OrvaneBackup.bytes(e.message)})")
      end
    end
    log(@errors.empty? ? "backup complete" : "backup finished with #{OrvaneBackup.plural(@errors.size, 'error')}")
    # The notice stays up as long as the user likes; the run does not wait.
    notice_in_background("--finished", @frequency, @errors.empty? ? "complete" : "errors", *kind_argument)
  rescue StandardError => e
    log("ERROR: the end of the run failed (#{e.class}: #{OrvaneBackup.bytes(e.message)})")
  end

  # One source onto one destination.
  def back_up(source, destination, index)
    if destination == "Toast"
      return error("#{source}: the disc was not burned: #{@s[:toastApplicationName]} does not exist on this system")
    end
    unless File.directory?(source)
      return error("#{source}: the source folder does not exist (is its disk connected?); it was not backed up")
    end
    unless File.directory?(destination)
      return error("#{destination}: the destination folder is missing (is its disk connected?); #{source} was not backed up")
    end
    if nested?(source, destination)
      return error("#{source} and #{destination} lie inside each other; nothing was copied")
    end
    source_disk = disk_of(source)
    destination_disk = disk_of(destination)
    if known_disk(destination) && known_disk(destination) != destination_disk
      return error("#{destination}: the disk that held this backup is not there (the folder now lies on " \
                   "#{destination_disk}, at the last backup on #{known_disk(destination)}); is its disk connected? " \
                   "#{source} was not backed up and nothing was written there")
    end
    mirror = command_flags.include?("d")
    if mirror && empty_folder?(source) && !(Dir.children(destination) - PSYNC_ENTRIES).reject { |n| n.start_with?(STAGING) }.empty?
      return error("#{source}: the source folder is empty (is its disk connected?); it was not mirrored, " \
                   "so nothing at #{destination} was deleted")
    end
    if known_disk(source) && known_disk(source) != source_disk
      return error("#{source}: the source folder is not on the disk it was on at the last backup (now #{source_disk}, " \
                   "then #{known_disk(source)}); is its disk connected? It was not backed up and nothing at #{destination} was changed")
    end
    free = free_bytes(destination)
    if free && free < MIN_FREE_BYTES
      return error("#{destination}: the destination is full (#{free} bytes free); #{source} was not backed up")
    end

    options = []
    if @s[:shouldArchive]
      owner, problem = safety_net_owner
      staging, left, problem = stage(source, destination, owner) if owner
      unless staging
        return error("#{source}: not backed up, so that no earlier version at #{destination} is lost: #{problem}")
      end
      options << "--backup-dir=#{staging[:name]}/#{KEPT}"
      (left + [staging[:name]]).each { |name| options << "--exclude-path=#{name}" }
    end
    exclude = safety_net_inside(source)
    options << "--exclude-path=#{exclude}" if exclude
    options << "--progress" if @s[:showProgress]
    report_progress("0 0 0 0 #{index + 1} #{@s[:sourceFolders].size}", force: true)

    command = @s[:backupCommand].split(" ")
    command = [command.first, *options, *command[1..], source, destination]
    @pair = "#{source} -> #{destination}"
    @left_out = 0
    @skipped = 0
    status = run_copy(command, index)
    if @skipped.positive?
      log("#{@pair}: #{@skipped} links, devices or special files not copied: the volume cannot hold them")
    end
    error("#{@pair}: #{@left_out - 20} more names left out (see the log)") if @left_out > 20
    case status
    when 0
      log("#{source} -> #{destination}: done")
    when 1
      if @left_out.positive?
        log("#{source} -> #{destination}: done, #{OrvaneBackup.plural(@left_out, 'name')} left out")
      else
        error("#{source} -> #{destination}: done, but some files vanished or could not be read (see the log)")
      end
    else
      full = @copy_output_full
      error("#{source} -> #{destination}: " + (full ? "the destination became full" : "the copy failed") +
            " (psync status #{status.inspect}); files not yet copied keep their earlier version")
    end
    if [0, 1].include?(status)
      remember_disk(source, source_disk)
      remember_disk(destination, destination_disk)
    end
  rescue SystemCallError => e
    error("#{source} -> #{destination}: #{OrvaneBackup.bytes(e.message)}; files not yet copied keep their earlier version")
  ensure
    if staging
      hand_over(source, destination, staging, owner)
      staging[:dir].close
    end
  end

  def command_flags = @s[:backupCommand].split(" ")[1..].to_a.select { |a| a.start_with?("-") }.join.delete("-")

  # Runs psync, logging what it says and turning its progress lines into
  # the progress file. Returns its exit status.
  def run_copy(command, index)
    @copy_output_full = false
    pending = "".b
    IO.popen(command, "rb", err: %i[child out]) do |output|
      loop do
        chunk = output.readpartial(65_536)
        pending << chunk
        while (cut = pending.index(/[\r\n]/))
          copy_line(pending.slice!(0, cut + 1).chomp("\n").chomp("\r"), index)
        end
      rescue EOFError
        copy_line(pending, index) unless pending.empty?
        break
      end
    end
    $?.exitstatus
  end

  def copy_line(line, index)
    return if line.strip.empty?
    if (m = line.match(PROGRESS_LINE))
      bytes_done = m[1].delete(",").to_i
      percent = m[2].to_i
      bytes_total = percent.positive? ? bytes_done * 100 / percent : bytes_done
      total = m[4].to_i
      done = m[3] ? total - m[3].to_i : 0
      report_progress("#{done} #{total} #{bytes_done} #{bytes_total} #{index + 1} #{@s[:sourceFolders].size}")
    else
      @copy_output_full ||= line.include?("No space left on device")
      log("  #{line}")
      # A remote volume cannot hold two names that differ only in case:
      # each one psync left out is an error the user must see.
      if line.start_with?("psync: not copied: ")
        @left_out += 1
        error("#{@pair}: #{line.delete_prefix('psync: ')}") if @left_out <= 20
      end
      @skipped += 1 if line.start_with?("psync: skipped ")
    end
  end

  def empty_folder?(folder) = Dir.children(folder).empty?

  def nested?(a, b)
    ra = File.realpath(a).chomp("/") + "/"
    rb = File.realpath(b).chomp("/") + "/"
    ra.start_with?(rb) || rb.start_with?(ra)
  end

  # The bytes a user may still write on the folder's file system, nil when
  # unknown. statvfs(3) itself where its layout is known (a 64-bit C
  # library: f_bsize, f_frsize, f_blocks, f_bfree, f_bavail, 8 bytes each),
  # else stat(1), whose start costs some 1-2 % of a run with little to copy.
  def free_bytes(folder)
    if (statvfs = OrvaneBackup.statvfs)
      buffer = "\0".b * 256
      return nil unless statvfs.call("#{folder}\0".b, buffer).zero?
      _, fragment, _, _, available = buffer.unpack("Q<5")
      return available * fragment
    end
    output = IO.popen(["/usr/bin/stat", "-f", "-c", "%a %S", folder], "rb", err: File::NULL, &:read)
    return nil unless $?.success?
    available, block = output.split.map(&:to_i)
    available * block
  end

  def self.statvfs
    return @statvfs if defined?(@statvfs)
    @statvfs = nil
    return nil unless [1].pack("J") == [1].pack("Q<")
    require "fiddle"
    @statvfs = Fiddle::Function.new(Fiddle::Handle::DEFAULT["statvfs"], [Fiddle::TYPE_VOIDP, Fiddle::TYPE_VOIDP], Fiddle::TYPE_INT)
  rescue LoadError, StandardError
    @statvfs = nil
  end

  # --- Disks -------------------------------------------------------------

  # The file system a folder lies on: its UUID when it has one, else its
  # type, source and the part of it mounted, and for a file system that
  # names its owner (FUSE's serving user, an SMB mount's owner and account)
  # that owner too, so that someone else's look-alike of a volume (same type
  # and source) is told apart from it. An empty mount point lies on the file
  # system below it, and so is told apart from its disk. A folder on the
  # remote volume that automount could not prove this run is refused.
  def disk_of(folder)
    # The path as given first: what is mounted there may be anyone's, and
    # may say it is a link to anywhere.
    refuse_unproven(File.expand_path(folder))
    real = File.realpath(folder)
    refuse_unproven(real)
    stat = File.stat(real)
    device = "#{stat.dev_major}:#{stat.dev_minor}"
    mount = OrvaneBackup.mounts.select do |m|
      m[:device] == device && (m[:point] == "/" || real == m[:point] || real.start_with?("#{m[:point]}/"))
    end.max_by { |m| m[:point].size }
    return "device #{device}" unless mount
    uuid = OrvaneBackup.uuid_of(mount[:source])
    return "UUID #{uuid}" if uuid
    before = "#{mount[:type]} #{mount[:source]} #{mount[:root]}"
    owner = mount[:options].split(",").select { |o| o.start_with?("user_id=", "uid=", "username=") }
    return before if owner.empty?
    identity = "#{before} #{owner.join(' ')}"
    # Remembered before identities named owners (and before rclone's mounts
    # named their server): the same disk if root or this script's user owns
    # it, and now named in full.
    known = known_disk(folder)
    if known && known != identity && trusted_owner?(owner) &&
       (known == before || (remote_proven?(real) && known == "#{mount[:type]} orvane:#{@s[:remoteVolumeName]} #{mount[:root]}"))
      remember_disk(folder, identity)
    end
    identity
  end

  def refuse_unproven(path)
    return unless @remote_refused && (path == remote_point || path.start_with?("#{remote_point}/"))
    raise RemoteVolumeRefused, "it lies on the remote volume #{@s[:remoteVolumeName]}, which could not be used " \
                               "(#{@remote_refused}), so nothing was written there"
  end

  def trusted_owner?(owner)
    uid = owner.find { |o| o.start_with?("user_id=", "uid=") }.to_s.split("=").last
    uid.nil? || uid == "0" || uid == (Etc.getpwnam(@s[:username]).uid.to_s rescue nil)
  end

  def remote_proven?(real) = @remote_proven && (real == remote_point || real.start_with?("#{remote_point}/"))

  def self.mounts
    File.binread("/proc/self/mountinfo").each_line.filter_map do |line|
      fields = line.split(" ")
      dash = fields.index("-")
      next unless dash && fields.size > dash + 2
      unescape = ->(f) { f.gsub(/\\(\d{3})/) { Regexp.last_match(1).to_i(8).chr } }
      { device: fields[2], root: unescape[fields[3]], point: unescape[fields[4]], type: fields[dash + 1],
        source: unescape[fields[dash + 2]], options: fields[dash + 3].to_s }
    end
  end

  def self.uuid_of(source)
    return nil unless source.start_with?("/dev/")
    device = File.realpath(source)
    folder = "/dev/disk/by-uuid"
    Dir.children(folder).find { |uuid| (File.realpath(File.join(folder, uuid)) rescue nil) == device }
  rescue SystemCallError
    nil
  end

  def disks
    @disks ||= begin
      fields = File.binread(disks_file).split("\0")
      fields.each_slice(2).select { |pair| pair.size == 2 }.to_h
    rescue SystemCallError
      {}
    end
  end

  def known_disk(folder) = disks[folder]

  def remember_disk(folder, disk)
    disks[folder] = disk
    @disks_changed = true
  end

  def save_disks
    return unless @disks_changed
    OrvaneBackup.replace(disks_file, @disks.map { |folder, disk| "#{folder}\0#{disk}\0" }.join.b, 0o600)
  rescue StandardError => e
    error("the disks of this backup could not be remembered in #{disks_file} (#{OrvaneBackup.bytes(e.message)}); " \
          "a disk that is not connected may go unnoticed next time")
  end

  # --- The Safety Net ----------------------------------------------------
  #
  # <Safety Net folder>/<YYYY-MM-DD HH.MM.SS> <Frequency>/<destination
  # without its leading "/">/<path relative to the destination>. Root never
  # writes by a path the Safety Net folder's owner controls: rsync moves each
  # file it replaces or deletes into a root-only staging folder at the
  # destination's top (given as a relative path, so rsync reaches it from
  # the destination by plain renames); the kept files are sorted there,
  # handed to the owner, and the owner's own process moves them into the
  # Safety Net folder, where it may write anyway.

  # The staging folder's name at a destination's top; "kept" inside it is
  # what rsync fills.
  STAGING = ".orvane-kept-"
  KEPT = "kept"
  # Run as the Safety Net folder's owner, in the staging folder: makes the
  # archive (the run's, or the next free second's when it is missing or
  # already holds this destination) and moves "kept" to its place in it.
  # Arguments: FOLDER DESTINATION-PATH ARCHIVE-OR-EMPTY CANDIDATE-NAME...
  HAND_OVER = <<~'SH'
    umask 077
    net=$1 rel=$2 archive=$3; shift 3
    [ -e kept ] || exit 0
    at() { target=$net/$1; [ -z "$rel" ] || target=$target/$rel; }
    if [ -n "$archive" ] && [ -d "$net/$archive" ] && at "$archive" && ! [ -e "$target" ] && ! [ -L "$target" ]; then
        :
    else
        archive=
        for name do
            problem=$(mkdir -- "$net/$name" 2>&1) && { archive=$name; break; }
            [ -e "$net/$name" ] || [ -L "$net/$name" ] || { printf '%s\n' "$problem" >&2; exit 1; }
        done
        [ -n "$archive" ] || { echo "no free archive name" >&2; exit 1; }
        at "$archive"
    fi
    printf '%s\n' "$archive"
    [ -z "$rel" ] || mkdir -p -- "${target%/*}" || exit 1
    mv -T -- kept "$target"
  SH

  def archive_name(time) = "#{time.strftime('%Y-%m-%d %H.%M.%S')} #{@frequency}"

  # The Safety Net folder, opened once a run without following a link, and
  # its owner; or nil and why it cannot be used. The script never makes the
  # folder: without it nothing is overwritten. Everything the owner's
  # process does in it goes through this descriptor, so a link put on the
  # folder's path later redirects nothing.
  def safety_net_owner
    return [@net.stat, nil] if @net
    folder = @s[:safetyNetFolder]
    net = File.open(folder, File::RDONLY | File::NOFOLLOW | File::NONBLOCK)
    stat = net.stat
    unless stat.directory?
      net.close
      return [nil, "the Safety Net folder #{folder} is not a folder"]
    end
    @net = net
    [stat, nil]
  rescue SystemCallError => e
    [nil, "the Safety Net folder #{folder} cannot be used (#{OrvaneBackup.bytes(e.message)}; is its disk connected?)"]
  end

  # Makes this pair's staging folder, root-only, after handing over what
  # killed or failed runs left at the destination. Returns the staging
  # folder ({name:, dir:}) and the names of earlier ones still there (left
  # out of the copy), or nil and why not.
  def stage(source, destination, owner)
    left = Dir.children(destination).select { |n| n.start_with?(STAGING) }.reject do |name|
      hand_over_leftover(source, destination, name, owner)
    end
    name = "#{STAGING}#{Process.pid}"
    name = "#{name}-#{rand(1 << 32)}" if left.include?(name)
    path = File.join(destination, name)
    Dir.mkdir(path, 0o700)
    made = true
    dir = File.open(path, File::RDONLY | File::NOFOLLOW | File::NONBLOCK)
    stat = dir.stat
    unless stat.directory? && stat.uid.zero? && (stat.mode & 0o077).zero?
      dir.close
      raise Errno::EPERM, "#{name} is not the folder this run made"
    end
    [{ name: name, dir: dir }, left, nil]
  rescue SystemCallError => e
    Dir.rmdir(path) rescue nil if made
    [nil, nil, "the staging folder #{File.join(destination, name.to_s)} could not be made (#{OrvaneBackup.bytes(e.message)})"]
  end

  # A staging folder an earlier run left. Root's own (root-only, so no one
  # else has been in it) is sorted and handed over like this run's; one its
  # owner already holds is only moved, by the owner; anything else is not
  # ours and stays. True when it is gone.
  def hand_over_leftover(source, destination, name, owner)
    stat = File.lstat(File.join(destination, name))
    return false unless stat.directory?
    root = stat.uid.zero? && (stat.mode & 0o077).zero?
    return false unless root || stat.uid == owner.uid
    dir = File.open(File.join(destination, name), File::RDONLY | File::NOFOLLOW | File::NONBLOCK)
    begin
      return false unless dir.stat.ino == stat.ino
      log("Safety Net: #{File.join(destination, name)} was left by an earlier run; its files go to the Safety Net now")
      hand_over(source, destination, { name: name, dir: dir }, owner, sort: root)
    ensure
      dir.close
    end
  rescue SystemCallError => e
    error("Safety Net: #{File.join(destination, name)}, left by an earlier run, could not be looked at (#{OrvaneBackup.bytes(e.message)})")
    false
  end

  # Sorts the staged files (root-only still), hands them to the Safety Net
  # folder's owner, and has the owner move them into the archive. True when
  # the staging folder is gone; on failure the files stay in it, reported,
  # and go at the next run.
  def hand_over(source, destination, staging, owner, sort: true)
    path = File.join(destination, staging[:name])
    base = "/proc/#{Process.pid}/fd/#{staging[:dir].fileno}"
    if sort
      sort_archive(source, base)
      unless Dir.exist?(File.join(base, KEPT))
        Dir.rmdir(path)
        return true
      end
      # All below the root-only folder, so nothing changes under the chown.
      output = IO.popen(["/bin/chown", "-R", "-h", "--", "#{owner.uid}:#{owner.gid}", KEPT], "rb", err: %i[child out],
                        chdir: base, &:read)
      raise(output.lines.last&.strip || "chown ended with status #{$?.exitstatus}") unless $?.success?
      staging[:dir].chown(owner.uid, owner.gid)
    end
    rel = File.expand_path(destination).sub(%r{\A/+}, "").chomp("/")
    candidates = (0..59).map { |i| archive_name(@started + i) }
    output, problem, status = Open3.capture3(*as_owner(owner), "/bin/sh", "-c", HAND_OVER, "sh", "/proc/self/fd/3", rel,
                                             @archive_name.to_s, *candidates, chdir: base, unsetenv_others: true,
                                             3 => @net, stdin_data: "", binmode: true)
    raise(problem.lines.map(&:strip).reject(&:empty?).last || "status #{status.exitstatus.inspect}") unless status.success?
    if (name = output.lines.first&.chomp) && !name.empty?
      @archive_name ||= name
      log("Safety Net: files kept in #{File.join(@s[:safetyNetFolder], name)}")
    end
    Dir.rmdir(path)
    true
  rescue StandardError => e
    error("Safety Net: the earlier versions from #{destination} could not be moved into #{@s[:safetyNetFolder]} " \
          "(#{OrvaneBackup.bytes(e.message)}); they stay in #{path} and go there at the next run")
    false
  end

  # The Safety Net folder's owner, with a clean environment.
  def as_owner(owner)
    groups = Etc.getpwuid(owner.uid) ? "--init-groups" : "--clear-groups" rescue "--clear-groups"
    ["/usr/bin/setpriv", "--reuid=#{owner.uid}", "--regid=#{owner.gid}", groups, "--",
     "/usr/bin/env", "-i", "PATH=/usr/bin:/bin", "LC_ALL=C"]
  end

  # rsync keeps every replaced and deleted file; what the choice does not
  # want goes again, and so do the folders left empty. A path the source
  # still has was replaced (also by a folder), one it lacks was deleted. A
  # file that shares its data with another (a hard link into the backup)
  # becomes a copy of its own before it is handed over.
  def sort_archive(source, staging)
    backup_dir = File.join(staging, KEPT)
    return unless File.directory?(backup_dir)
    contents = @s[:archiveContents].to_s.empty? ? "Everything" : @s[:archiveContents]
    kept = 0
    walk(backup_dir) do |relative, stat|
      full = File.join(backup_dir, relative)
      if stat.directory?
        begin
          Dir.rmdir(full)
        rescue Errno::ENOTEMPTY, Errno::EEXIST
          nil
        end
        next
      end
      if contents != "Everything"
        replaced = File.exist?(File.join(source, relative)) || File.symlink?(File.join(source, relative))
        next File.unlink(full) if (contents == "Changed") != replaced
      end
      unlink_copy(full, stat) if stat.file? && stat.nlink > 1
      kept += 1
    end
    Dir.rmdir(backup_dir) if Dir.empty?(backup_dir)
    log("Safety Net: kept #{OrvaneBackup.plural(kept, 'file')} of #{source} (#{contents.downcase})") if kept.positive?
  end

  def unlink_copy(path, stat)
    copy = File.join(File.dirname(path), ".orvane-copy-#{rand(1 << 32)}")
    File.open(copy, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW, 0o600) do |out|
      File.open(path, File::RDONLY | File::NOFOLLOW) { |data| IO.copy_stream(data, out) }
      out.chown(stat.uid, stat.gid)
      out.chmod(stat.mode & 0o7777)
    end
    File.utime(stat.atime, stat.mtime, copy)
    File.rename(copy, path)
  end

  # Every entry below a folder, deepest first, never following a link.
  def walk(folder, relative = nil, &block)
    here = relative ? File.join(folder, relative) : folder
    Dir.children(here).each do |name|
      path = relative ? File.join(relative, name) : name
      stat = File.lstat(File.join(folder, path))
      walk(folder, path, &block) if stat.directory?
      yield path, stat
    end
  end

  # At most maxArchives archives of this frequency stay; the other
  # frequencies' archives are theirs to count. Old archives belong to the
  # folder's owner, who may change them while they go: GNU rm walks them by
  # descriptor and never follows a link, and is some ten times quicker than
  # a walk in Ruby. It runs inside the folder opened without following a
  # link, on the archives' bare names.
  def prune_archives
    folder = @s[:safetyNetFolder]
    begin
      # Without blocking on a FIFO someone put there.
      net = File.open(folder, File::RDONLY | File::NOFOLLOW | File::NONBLOCK)
    rescue Errno::ENOENT, Errno::ENOTDIR, Errno::ELOOP
      return
    end
    return unless net.stat.directory?
    base = "/proc/#{Process.pid}/fd/#{net.fileno}"
    pattern = /\A\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d #{@frequency}\z/
    archives = Dir.children(base).select { |n| n.match?(pattern) }.sort
    old = archives.first([archives.size - [@s[:maxArchives].to_i, 1].max, 0].max)
    return if old.empty?
    output = IO.popen(["/bin/rm", "-rf", "--one-file-system", "--", *old], "rb", err: %i[child out], chdir: base, &:read)
    old.each do |name|
      File.lstat(File.join(base, name))
    rescue Errno::ENOENT
      log("Safety Net: removed the old archive #{name}")
    end
    raise(output.lines.last&.strip || "rm ended with status #{$?.exitstatus}") unless $?.success?
  rescue StandardError => e
    error("Safety Net: old archives in #{folder} could not be removed (#{OrvaneBackup.bytes(e.message)})")
  ensure
    net&.close
  end

  # The Safety Net folder when it lies inside the source, as a path
  # relative to it: it is never copied into a backup.
  def safety_net_inside(source)
    folder = @s[:safetyNetFolder].to_s
    return nil if folder.empty? || !File.directory?(folder)
    net = File.realpath(folder)
    root = File.realpath(source).chomp("/") + "/"
    net.start_with?(root) ? net.delete_prefix(root) : nil
  end

  # --- The remote volume ----------------------------------------------
  #
  # Only root mounts at /Volumes/<volume>, a folder of root's in root's
  # /Volumes. A run whose items use the remote volume has automount mount it
  # (auto-connect on) or prove that what is mounted there is the configured
  # server's volume for this script's user (auto-connect off); a folder on
  # a volume it could not prove is never written (disk_of refuses it).

  # disk_of's refusal: back_up ends the pair with its message.
  class RemoteVolumeRefused < SystemCallError
    Errno = ::Errno::EACCES::Errno

    def initialize(text)
      @text = text
      super(text)
    end

    def to_s = @text
  end

  def remote_point = File.join("/Volumes", @s[:remoteVolumeName].to_s)

  def mount_remote_volume
    server = @s[:remoteServerName].to_s
    volume = @s[:remoteVolumeName].to_s
    # Without a server, Remote only means a volume that keeps no owners.
    return if server.empty? || volume.empty?
    what = @s[:autoConnect] ? "auto-connect: could not mount the volume #{volume} from #{server}" :
                              "the remote volume #{volume} of #{server} cannot be used"
    @remote_refused = "automount did not run"
    unless File.executable?(AUTOMOUNT)
      @remote_refused = "this installation has no automount tool"
      return error("#{what}: #{@remote_refused}")
    end
    # Its own arguments, no shell: the address goes as the user typed it.
    command = [AUTOMOUNT, "--user", @s[:username], *(@s[:autoConnect] ? [] : ["--verify"]), server, @s[:remoteAccountName], volume]
    output, problem, status = Open3.capture3(*command, stdin_data: "", binmode: true)
    output.each_line { |l| log("  automount: #{l.chomp}") }
    if status.success?
      @mounted_volume = volume if @s[:autoConnect]
      @remote_refused = nil
      @remote_proven = true
    else
      @remote_refused = problem.each_line.map(&:strip).reject(&:empty?).last.to_s.delete_prefix("automount: ")
      @remote_refused = "automount ended with status #{(status.exitstatus || status.termsig).inspect}" if @remote_refused.empty?
      error("#{what}: #{@remote_refused}")
    end
  rescue SystemCallError => e
    @remote_refused = OrvaneBackup.bytes(e.message)
    error("#{what}: #{@remote_refused}")
  end

  def unmount_remote_volume
    tidy_remote_volume
    return unless @mounted_volume
    output, status = Open3.capture2e(AUTOMOUNT, "--unmount", @mounted_volume, stdin_data: "", binmode: true)
    output.each_line { |l| log("  automount: #{l.chomp}") }
    log("auto-connect: the volume #{@mounted_volume} could not be unmounted") unless status.success?
  rescue StandardError => e
    log("auto-connect: the volume #{@mounted_volume} could not be unmounted (#{OrvaneBackup.bytes(e.message)})")
  end

  # rclone 1.60's SMB client makes a folder "．" (U+FF0E, its name for ".")
  # at the share's top whenever it writes a file there: the parent of such a
  # file is ".", and it makes that parent (rclone 1.61 no longer does). It
  # goes again after the run if it is empty and no source backed up onto the
  # share's top has an entry of that name.
  STRAY = "\xEF\xBC\x8E".b

  def tidy_remote_volume
    return unless @remote_proven
    mount = OrvaneBackup.mounts.reverse.find { |m| m[:point] == remote_point }
    return unless mount && mount[:type] == "fuse.rclone"
    onto_top = @s[:sourceFolders].each_index.select { |i| (File.realpath(@s[:destFolders][i]) rescue nil) == remote_point }
    return if onto_top.any? { |i| File.exist?(File.join(@s[:sourceFolders][i], STRAY)) }
    stray = File.join(remote_point, STRAY)
    Dir.rmdir(stray) if File.lstat(stray).directory? && Dir.empty?(stray)
  rescue SystemCallError
    nil
  end

  # --- The user's desktop ------------------------------------------------

  def kind_argument = manual? ? ["manual"] : []

  # The progress file holds one line, "<files done> <files total> <bytes
  # done> <bytes total> <source index> <source count>", replaced whole at
  # most once a second.
  def report_progress(line, force: false)
    return unless @s[:showProgress]
    now = Process.clock_gettime(Process::CLOCK_MONOTONIC)
    return if !force && @progress_written && now - @progress_written < 1.0
    @progress_written = now
    OrvaneBackup.replace(progress_file, "#{line}\n")
    @progress_notice ||= notice_in_background("--progress", progress_file, @frequency, *kind_argument) || :none
  rescue SystemCallError => e
    log("the progress file #{progress_file} could not be written (#{OrvaneBackup.bytes(e.message)})")
  end

  # Waits until the user has left the computer alone for a while.
  def wait_until_away
    waited = 0
    loop do
      idle = user_idle_seconds
      break if idle.nil? || idle >= AWAY_SECONDS
      if waited >= MAX_WAIT_SECONDS
        log("the user was never away for long; backing up anyway")
        break
      end
      sleep 60
      waited += 60
    end
  end

  def user_idle_seconds
    output = notice_output("--idle")
    output&.strip&.match?(/\A\d+\z/) ? output.to_i : nil
  end

  def user_agrees?
    status = notice("--prompt", @frequency, *kind_argument)
    status.nil? || status.zero?
  end

  # The user's desktop: the environment of one of their processes that has
  # a display. Nothing when they have none (then no notice is shown).
  def user_session
    return @session if defined?(@session)
    @session = nil
    user = Etc.getpwnam(@s[:username]) rescue nil
    return nil if user.nil? || user.uid.zero?
    Dir.glob("/proc/[0-9]*").each do |process|
      next unless File.stat(process).uid == user.uid rescue next
      environment = File.binread("#{process}/environ").split("\0") rescue next
      wanted = environment.select { |v| v.match?(/\A(DISPLAY|WAYLAND_DISPLAY|XAUTHORITY|DBUS_SESSION_BUS_ADDRESS|XDG_RUNTIME_DIR)=/) }
      next unless wanted.any? { |v| v.start_with?("DISPLAY=", "WAYLAND_DISPLAY=") }
      @session = { user: user, environment: wanted + ["HOME=#{user.dir}", "USER=#{user.name}", "LOGNAME=#{user.name}", "PATH=/usr/bin:/bin"] }
      break
    end
    @session
  end

  def notice_command(*arguments)
    session = user_session
    return nil unless session && File.executable?(NOTICE)
    ["/usr/sbin/runuser", "-u", session[:user].name, "--", "/usr/bin/env", "-i", *session[:environment], NOTICE, *arguments]
  end

  def notice(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    system(*command, out: File::NULL, err: File::NULL)
    $?.exitstatus
  end

  def notice_output(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    output, = Open3.capture2(*command, err: File::NULL, binmode: true)
    output
  end

  def notice_in_background(*arguments)
    command = notice_command(*arguments)
    command && Process.detach(Process.spawn(*command, out: File::NULL, err: File::NULL))
  rescue SystemCallError => e
    log("the notice could not be shown (#{OrvaneBackup.bytes(e.message)})")
    nil
  end
end

if __FILE__ == $PROGRAM_NAME
  File.umask(0o022)
  settings = {
    frequency: frequency, backupCommand: backupCommand, sourceFolders: sourceFolders, destFolders: destFolders,
    logfile: logfile, lastBackup: lastBackup, toastApplicationName: toastApplicationName, username: username,
    remoteBackup: remoteBackup, showProgress: showProgress, repairPermissions: repairPermissions,
    promptBeforeBackup: promptBeforeBackup, shouldWaitUntilAway: shouldWaitUntilAway, autoConnect: autoConnect,
    remoteServerName: remoteServerName, remoteAccountName: remoteAccountName, remoteVolumeName: remoteVolumeName,
    shouldArchive: shouldArchive, maxArchives: maxArchives, safetyNetFolder: safetyNetFolder,
    archiveContents: archiveContents, runKind: runKind
  }
  exit OrvaneBackup.new(settings).run
end
